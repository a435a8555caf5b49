#pragma once
#include <mutex>

namespace tolm {

// Serialises command execution on the serial process or the master against other threads:
// holds the core controller's lock for its lifetime. A slave takes nothing, since only its
// command loop executes commands.
class CommandAutoLock {
public:
    CommandAutoLock();
    ~CommandAutoLock();
    CommandAutoLock(const CommandAutoLock&) = delete;
    CommandAutoLock& operator=(const CommandAutoLock&) = delete;

private:
    std::recursive_mutex* _lock = nullptr;
};

}  // namespace tolm
