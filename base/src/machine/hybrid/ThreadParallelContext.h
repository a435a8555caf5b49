#pragma once

namespace tolm {

// Counts the hybrid contexts in which this process runs an operation on threads. Code that
// must run on every process together refuses to run while it is raised.
class ThreadParallelContext {
  public:
    static bool isActive() { return _threadParallelContext != 0; }
    static unsigned int depth() { return _threadParallelContext; }

    // Raises the count for its lifetime. Main thread only.
    class Scope {
      public:
        Scope() { ++_threadParallelContext; }
        ~Scope() { --_threadParallelContext; }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

  private:
    static inline unsigned int _threadParallelContext = 0;
};

}  // namespace tolm
