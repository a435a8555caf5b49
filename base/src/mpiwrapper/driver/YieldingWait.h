// Blocking calls that leave the processor to other processes while they wait. On a host that
// runs more processes than processing units, an MPI library that spins in its blocking calls
// takes the processor from the very process it waits for. With yielding waits on
// (QMX_MPI_Set_yield_wait), each blocking call starts its non-blocking form and tests it,
// yielding between tests and sleeping briefly once the wait has lasted. Off, the blocking form
// runs as before, behind one test of a flag.
#pragma once

#include <mpi.h>

#include <atomic>

namespace tolm::mpidriver {

namespace waiting {
// Written while no call is in progress; relaxed loads cost what a plain load costs.
extern std::atomic<bool> yielding;
}  // namespace waiting

inline bool yieldingWaits() {
    return waiting::yielding.load(std::memory_order_relaxed);
}

// The pause between two unsuccessful tests: a yield at first, a short sleep once the wait has
// lasted, so that a long wait costs next to no processor time.
class WaitBackoff {
  public:
    void pause();

  private:
    unsigned _polls = 0;
};

// Native completions by testing, with the codes and statuses of their blocking forms.
int waitYielding(MPI_Request* request, MPI_Status* status);
int waitAllYielding(int count, MPI_Request* requests, MPI_Status* statuses);
int waitAnyYielding(int count, MPI_Request* requests, int* index, MPI_Status* status);
int probeYielding(int source, int tag, MPI_Comm comm, MPI_Status* status);

// The blocking MPI call `blocking(args...)`, or with yielding waits its non-blocking form
// `starting(args..., &request)` completed by waitYielding. Native code.
template <auto blocking, auto starting, class... Args>
int blockingCall(Args... args) {
    if (!yieldingWaits()) [[likely]] {
        return blocking(args...);
    }
    MPI_Request request = MPI_REQUEST_NULL;
    const int rc = starting(args..., &request);
    return rc == MPI_SUCCESS ? waitYielding(&request, MPI_STATUS_IGNORE) : rc;
}

}  // namespace tolm::mpidriver
