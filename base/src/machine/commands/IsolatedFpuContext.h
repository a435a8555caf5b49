#pragma once

namespace tolm {

// A stretch of code whose floating-point exceptions are its own business (a deliberate probe,
// a library that handles them itself): the status flags raised inside it are discarded when
// it ends, and the collective floating-point checks ignore the status while it is active.
// Main thread only, like the checks themselves.
class IsolatedFpuContext {
public:
    IsolatedFpuContext();
    ~IsolatedFpuContext();
    IsolatedFpuContext(const IsolatedFpuContext&) = delete;
    IsolatedFpuContext& operator=(const IsolatedFpuContext&) = delete;

    static bool isActive() { return _depth > 0; }

private:
    static inline int _depth = 0;
    bool _statusWasClear;
};

}  // namespace tolm
