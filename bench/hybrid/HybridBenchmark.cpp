// The hybrid MPI/thread context against plain MPI, in one job of N ranks on one host:
//   1. the same compute work split over N processes (barrier, work, barrier) and over N
//      threads of one process (HybridMpiThreadContext, host scope); the threads should not be
//      slower;
//   2. the processor time the waiting processes use, as a share of one core: while the
//      hybrid operation runs (they sleep in the context's barrier) and while one rank works
//      and the others wait in MPI_Barrier (they poll).
// Run by bench/run-all.sh under each MPI with 2 ranks.
#include <ctime>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "../latency/LatencyBench.h"
#include "machine/Communicator.h"
#include "machine/HybridMachine.h"
#include "machine/HybridMpiThreadContext.h"
#include "machine/HybridMpiThreadOperation.h"
#include "machine/Machine.h"
#include "machine/MachineHost.h"
#include "machine/ThreadPolicyBase.h"

namespace tolm {
namespace {

// Kernel steps of one measurement: about a second of work, so that the end of a hybrid
// operation, where the sleeping processes wake within one sleep period (10 ms), weighs
// about as little as in a real operation of that size.
constexpr unsigned long totalWork = 600'000'000;
constexpr int repetitions = 15;

// Out of line, so that processes and threads run the same machine code: inlined at its two
// call sites, the compiler built two loops whose speed differed by 7 %.
[[gnu::noinline]] double kernel(unsigned long first, unsigned long last) {
    double sum = 0.0;
    for (unsigned long i = first; i < last; ++i)
        sum += std::sqrt(double(i));
    return sum;
}

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

class ThreadedKernel : public HybridMpiThreadOperation {
  public:
    void execute(const HybridMachine&) override {
        ThreadPolicyBase& policy = threadPolicy();
        const unsigned threads = policy.getNumberThreads();
        std::vector<double> partial(threads);
        policy.run([&](unsigned thread) {
            partial[thread] =
                kernel(totalWork * thread / threads, totalWork * (thread + 1) / threads);
        });
        result = 0.0;
        for (const double value : partial)
            result += value;
    }
    double result = 0.0;
};

Communicator& world() {
    return *Machine::globalCommunicator();
}

// Seconds of the slowest rank.
template <typename Work>
double slowestRank(Work&& work) {
    world().synchronise();
    const double start = Machine::wallTime();
    work();
    double seconds = Machine::wallTime() - start;
    world().allReduce(seconds, QMX_MPI_MAX);
    return seconds;
}

// Both sides timed in turns, so that a slower stretch of the machine weighs on both alike.
struct SameWork {
    std::vector<double> processes, threads, ratios;  // ratios: threads / processes per turn
};

template <typename OverProcesses, typename OverThreads>
SameWork timeInTurns(OverProcesses&& overProcesses, OverThreads&& overThreads) {
    SameWork times;
    for (int turn = 0; turn < repetitions; ++turn) {
        const bool threadsFirst = turn % 2 == 1;
        if (threadsFirst)
            times.threads.push_back(slowestRank(overThreads));
        times.processes.push_back(slowestRank(overProcesses));
        if (!threadsFirst)
            times.threads.push_back(slowestRank(overThreads));
        times.ratios.push_back(times.threads.back() / times.processes.back());
    }
    return times;
}

// The largest share of a core a waiting rank used while `work` ran.
template <typename Work>
double waitingCoreShare(Work&& work, bool waiting) {
    world().synchronise();
    const double cpu = cpuSeconds();
    const double start = Machine::wallTime();
    work();
    double share = waiting ? (cpuSeconds() - cpu) / (Machine::wallTime() - start) : 0.0;
    world().allReduce(share, QMX_MPI_MAX);
    return share;
}

void run() {
    const unsigned np = world().size();
    const unsigned rank = world().myRank();
    double check = 0.0;
    ThreadedKernel threaded;
    const SameWork same = timeInTurns(
        [&] {
            check = kernel(totalWork * rank / np, totalWork * (rank + 1) / np);
            world().synchronise();
        },
        [&] { HybridMpiThreadContext::execute(HOST_SCOPE, threaded); });
    const bool leader = Machine::hasSparseCommunicator(HOST_SCOPE) != nullptr;
    const double hybridWait =
        waitingCoreShare([&] { HybridMpiThreadContext::execute(HOST_SCOPE, threaded); }, !leader);
    const double mpiWait = waitingCoreShare(
        [&] {
            if (rank == 0)
                check += kernel(0, totalWork / 2);
            QMX_MPI_Barrier(world().handle());
        },
        rank != 0);
    world().allReduce(check, QMX_MPI_SUM);
    if (rank != 0)
        return;
    std::printf("hybrid MPI/thread execution, %u ranks on one host, %s (check %.6g %.6g)\n", np,
                TOLM_BENCH_DRIVER, check, threaded.result);
    std::printf("%-44s %12s %12s %8s %8s\n", "measurement", "tolm", "raw MPI", "ratio", "median");
    const double threads = bench::best(same.threads);
    const double processes = bench::best(same.processes);
    std::printf("%-44s %11.4fs %11.4fs %8.3f %8.3f\n", "same work: N threads (tolm) / N processes",
                threads, processes, threads / processes, bench::median(same.ratios));
    std::printf("%-44s %11.2f%% %11.2f%% %8.3f\n", "waiting rank's core share (sleep / barrier)",
                100.0 * hybridWait, 100.0 * mpiWait, mpiWait > 0 ? hybridWait / mpiWait : 0.0);
}

}  // namespace
}  // namespace tolm

int main(int argc, char** argv) {
    tolm::bench::startMachine(argc, argv);
    tolm::Machine::getHost().bindProcesses();
    tolm::Machine::buildShmemCommunicators();
    tolm::run();
    tolm::Machine::stopCommunicators();
    return 0;
}
