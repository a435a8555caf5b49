// User reduction operations. A native MPI operation only gets (in, inout, len, MPI_Datatype*),
// with no word of its own, so every user operation is created over one native trampoline, and
// each blocking reduction that uses a user operation names it as the active one for the
// duration of the call (MPI applies the operation inside that call, on the calling thread).
// The trampoline hands the wrapper-level function the wrapper's datatype handle. There is no
// pool of trampolines to run out of; the price is that user operations work only in blocking
// reductions, which are the only reductions the wrapper offers.
#pragma once

#include <mpi.h>

#include "mpiwrapper/driver/NativeHandles.h"

namespace tolm::mpidriver {

// The native function every user operation is created with.
void userOpTrampoline(void* in, void* inout, int* len, MPI_Datatype* datatype);

// Makes op the active user operation, and datatype the wrapper handle of the reduced type,
// until destroyed; does nothing for a predefined operation.
// Inline, so that a reduction with a predefined operation pays one test.
class ActiveUserOp {
  public:
    ActiveUserOp(const OpEntry& op, int datatype) : active_(op.function != nullptr) {
        if (active_)
            activate(op.function, datatype);
    }
    ~ActiveUserOp() {
        if (active_)
            deactivate();
    }
    ActiveUserOp(const ActiveUserOp&) = delete;
    ActiveUserOp& operator=(const ActiveUserOp&) = delete;

  private:
    static void activate(QMX_MPI_User_function* function, int datatype);
    static void deactivate();

    bool active_;
};

}  // namespace tolm::mpidriver
