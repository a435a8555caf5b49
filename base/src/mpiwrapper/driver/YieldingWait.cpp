#include "mpiwrapper/driver/YieldingWait.h"

#include <sched.h>
#include <time.h>

#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"

namespace tolm::mpidriver {

namespace waiting {
std::atomic<bool> yielding{false};
}  // namespace waiting

namespace {

// A yield costs about a microsecond when another process is ready, so some thousand of them
// cover the waits of a solver's exchanges; beyond that the process sleeps, each sleep
// adding at most a short delay (plus the timer's slack) to the end of the wait.
constexpr unsigned yieldsBeforeSleeping = 2000;
constexpr long sleepNanoseconds = 20'000;

// Tests with test(&done) until done or an error, pausing between tests.
template <class Test>
int testUntilDone(Test&& test) {
    WaitBackoff backoff;
    for (;;) {
        int done = 0;
        const int rc = test(&done);
        if (rc != MPI_SUCCESS || done) {
            return rc;
        }
        backoff.pause();
    }
}

}  // namespace

void WaitBackoff::pause() {
    if (_polls < yieldsBeforeSleeping) {
        ++_polls;
        sched_yield();
        return;
    }
    const timespec nap{0, sleepNanoseconds};
    nanosleep(&nap, nullptr);
}

int waitYielding(MPI_Request* request, MPI_Status* status) {
    return testUntilDone([&](int* done) { return MPI_Test(request, done, status); });
}

int waitAllYielding(int count, MPI_Request* requests, MPI_Status* statuses) {
    return testUntilDone([&](int* done) { return MPI_Testall(count, requests, done, statuses); });
}

int waitAnyYielding(int count, MPI_Request* requests, int* index, MPI_Status* status) {
    return testUntilDone(
        [&](int* done) { return MPI_Testany(count, requests, index, done, status); });
}

int probeYielding(int source, int tag, MPI_Comm comm, MPI_Status* status) {
    return testUntilDone([&](int* done) { return MPI_Iprobe(source, tag, comm, done, status); });
}

int Set_yield_wait(int flag) {
    return guarded([&] {
        require(flag == 0 || flag == 1);
        waiting::yielding.store(flag == 1, std::memory_order_relaxed);
        return QMX_MPI_SUCCESS;
    });
}

int Get_yield_wait(int* flag) {
    return guarded([&] {
        require(flag != nullptr);
        *flag = yieldingWaits() ? 1 : 0;
        return QMX_MPI_SUCCESS;
    });
}

}  // namespace tolm::mpidriver
