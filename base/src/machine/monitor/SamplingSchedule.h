#pragma once
#include <chrono>

namespace tolm {

// When a periodic sampler takes its samples: each is due one period after the last one was
// due, however late the sampler woke for that one, so that late wake-ups never add up to a
// drift. On the first turn, and once the sampler has fallen two periods behind (a stall, a
// restart), the schedule starts afresh from the present rather than catch up in a burst.
class SamplingSchedule {
  public:
    using Clock = std::chrono::steady_clock;

    // Whether a sample is due at `now`; if so, the schedule moves past it.
    bool takeDue(Clock::time_point now, Clock::duration period) {
        if (now - _lastDue < period)
            return false;
        _lastDue = now - _lastDue < 2 * period ? _lastDue + period : now;
        return true;
    }
    Clock::time_point nextDue(Clock::duration period) const { return _lastDue + period; }

  private:
    Clock::time_point _lastDue{};  // the clock's epoch: the first turn finds it long past
};

}  // namespace tolm
