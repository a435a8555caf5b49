#pragma once

namespace tolm {

// Marks the stretch in which one process per shared-memory group runs an operation on threads
// while the group's other processes wait: collective checks must not run inside it.
class HybridMpiThreadContext {
public:
    static bool isActive() { return _active; }

private:
    static inline bool _active = false;
};

}  // namespace tolm
