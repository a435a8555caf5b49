#pragma once

namespace tolm {

// Whether the process is inside a loop over the cells or faces of a field, where the work is
// local and communicating is a fault. Main thread only.
class FieldLoopState {
  public:
    static void setBusy() { _busy = true; }
    static void setIdle() { _busy = false; }
    static bool busy() { return _busy; }

  private:
    static inline bool _busy = false;
};

}  // namespace tolm
