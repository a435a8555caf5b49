#include "platform/Semaphore.h"

namespace tolm {

void Semaphore::post() {
    {
        std::lock_guard lock(_mutex);
        ++_count;
    }
    _posted.notify_one();
}

void Semaphore::wait() {
    std::unique_lock lock(_mutex);
    _posted.wait(lock, [this] { return _count > 0; });
    --_count;
}

bool Semaphore::waitFor(std::chrono::duration<double> timeout) {
    std::unique_lock lock(_mutex);
    if (!_posted.wait_for(lock, timeout, [this] { return _count > 0; }))
        return false;
    --_count;
    return true;
}

}  // namespace tolm
