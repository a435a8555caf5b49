#include "platform/InterruptableRunnable.h"

namespace tolm {

void InterruptableRunnable::interrupt() {
    {
        std::lock_guard lock(_mutex);
        _interrupted = true;
    }
    _wake.notify_all();
}

bool InterruptableRunnable::isInterrupted() const {
    std::lock_guard lock(_mutex);
    return _interrupted;
}

bool InterruptableRunnable::sleepFor(std::chrono::duration<double> duration) {
    std::unique_lock lock(_mutex);
    return !_wake.wait_for(lock, duration, [this] { return _interrupted; });
}

bool InterruptableRunnable::sleepUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(_mutex);
    return !_wake.wait_until(lock, deadline, [this] { return _interrupted; });
}

}  // namespace tolm
