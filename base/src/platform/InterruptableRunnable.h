#pragma once
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tolm {

// The body of a long-running worker thread that another thread can ask to stop. The body
// polls `isInterrupted()` or sleeps with `sleepFor` or `sleepUntil`, which return early on an
// interrupt.
class InterruptableRunnable {
  public:
    virtual ~InterruptableRunnable() = default;
    virtual void run() = 0;

    void interrupt();
    bool isInterrupted() const;

  protected:
    // Sleeps for `duration`; false when interrupted before it passed.
    bool sleepFor(std::chrono::duration<double> duration);
    // Sleeps until `deadline` on the monotonic clock; false when interrupted before it. A
    // periodic body that sleeps until fixed deadlines keeps its period however late it wakes.
    bool sleepUntil(std::chrono::steady_clock::time_point deadline);

  private:
    mutable std::mutex _mutex;
    std::condition_variable _wake;
    bool _interrupted = false;
};

}  // namespace tolm
