// The hybrid MPI/thread context against plain MPI, in one job of N ranks on one host:
//   1. the same compute work split over N processes (barrier, work, barrier) and over N
//      threads of one process (HybridMpiThreadContext, host scope); the threaded operation
//      should not be slower. The whole context is shown beside it: it adds the closing
//      sleeping barrier, whose sleepers wake within one sleep period of the leader's arrival;
//   2. the processor time the waiting processes use, as a share of one core: while the
//      hybrid operation runs (they sleep in the context's barrier) and while one rank works
//      and the others wait in MPI_Barrier (they poll).
// Run by bench/run-all.sh under each MPI with 2 ranks.
#include <ctime>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include "../latency/LatencyBench.h"
#include "machine/comm/Communicator.h"
#include "machine/hybrid/HybridMachine.h"
#include "machine/hybrid/HybridMpiThreadContext.h"
#include "machine/hybrid/HybridMpiThreadOperation.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "machine/hybrid/ThreadPolicyBase.h"

namespace tolm {
namespace {

// Kernel steps of one measurement: about two thirds of a second of work on two cores, so that
// the end of the context, where the sleeping processes wake within one sleep period (10 ms),
// weighs about as little as after a real operation of that size.
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

// Times itself: `seconds` is the operation's own wall time, from its start to the sum of
// the threads' results.
class ThreadedKernel : public HybridMpiThreadOperation {
  public:
    void execute(const HybridMachine&) override {
        const double start = Machine::wallTime();
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
        seconds = Machine::wallTime() - start;
    }
    double result = 0.0;
    double seconds = 0.0;
};

Communicator& world() {
    return *Machine::globalCommunicator();
}

double slowest(double seconds) {
    world().allReduce(seconds, QMX_MPI_MAX);
    return seconds;
}

// Seconds of the slowest rank.
template <typename Work>
double slowestRank(Work&& work) {
    world().synchronise();
    const double start = Machine::wallTime();
    work();
    return slowest(Machine::wallTime() - start);
}

// One series of each side; a ratio is threads / processes within one turn.
struct SameWork {
    std::vector<double> processes, operation, context;
    std::vector<double> operationRatios, contextRatios;
};

// Both sides timed in turns, so that a slower stretch of the machine weighs on both alike.
SameWork timeInTurns(unsigned rank, unsigned np, ThreadedKernel& threaded, double& check) {
    const auto overProcesses = [&] {
        check += kernel(totalWork * rank / np, totalWork * (rank + 1) / np);
        world().synchronise();
    };
    const auto overThreads = [&] {
        threaded.seconds = 0.0;  // stays 0 on the processes that only wait
        const double context =
            slowestRank([&] { HybridMpiThreadContext::execute(HOST_SCOPE, threaded); });
        return std::pair{slowest(threaded.seconds), context};
    };
    SameWork times;
    for (int turn = 0; turn < repetitions; ++turn) {
        const bool threadsFirst = turn % 2 == 1;
        std::pair<double, double> threads;
        if (threadsFirst)
            threads = overThreads();
        times.processes.push_back(slowestRank(overProcesses));
        if (!threadsFirst)
            threads = overThreads();
        times.operation.push_back(threads.first);
        times.context.push_back(threads.second);
        times.operationRatios.push_back(threads.first / times.processes.back());
        times.contextRatios.push_back(threads.second / times.processes.back());
    }
    return times;
}

void printSameWork(const char* what, const std::vector<double>& threads,
                   const std::vector<double>& processes, const std::vector<double>& ratios) {
    const double bestThreads = bench::best(threads);
    const double bestProcesses = bench::best(processes);
    std::printf("%-44s %11.4fs %11.4fs %8.3f %8.3f\n", what, bestThreads, bestProcesses,
                bestThreads / bestProcesses, bench::median(ratios));
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
    double check = 0.0;  // printed, so that the compiler keeps the processes' work
    ThreadedKernel threaded;
    const SameWork same = timeInTurns(rank, np, threaded, check);
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
    printSameWork("operation: N threads (tolm) / N processes", same.operation, same.processes,
                  same.operationRatios);
    printSameWork("whole context, closing barrier included", same.context, same.processes,
                  same.contextRatios);
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
