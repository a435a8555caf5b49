// The sleeping tree barrier (Communicator::noSpinSynchronise) beside native MPI_Barrier, in the
// same job: how much processor a rank uses while it waits for a late one, and how soon every
// rank leaves once the last has arrived. Built once per MPI; run with 2 or more ranks.
//
// Times across processes are compared on CLOCK_MONOTONIC (steady_clock), which all processes
// of one host share.
#include <mpi.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <thread>

#include "LatencyBench.h"
#include "machine/comm/Communicator.h"

namespace tolm::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Barrier = std::function<void()>;

constexpr double cpuWaitSeconds = 2.0;  // how long the late rank keeps the others waiting
constexpr int wakeUpRounds = 20;
constexpr double wakeUpLatenessMs = 100.0;
constexpr double wakeUpSpinTime = 0.02;
constexpr double sleepPeriodMs = 10.0;  // the barrier's period below 513 ranks

int rank = 0;
int size = 1;

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double seconds(Clock::time_point moment) {
    return std::chrono::duration<double>(moment.time_since_epoch()).count();
}

// The largest of every rank's value, on rank 0.
double largestOnRoot(double value) {
    double largest = 0.0;
    MPI_Reduce(&value, &largest, 1, MPI_DOUBLE, MPI_MAX, 0, MPI_COMM_WORLD);
    return largest;
}

// The share of a core the waiting ranks used while `late` kept them waiting: the busiest
// waiting rank's, on rank 0.
double cpuShareWhileWaiting(const Barrier& barrier, int late) {
    MPI_Barrier(MPI_COMM_WORLD);
    if (rank == late)
        std::this_thread::sleep_for(std::chrono::duration<double>(cpuWaitSeconds));
    const double cpu = processCpuSeconds();
    const auto wall = Clock::now();
    barrier();
    const double waited = std::chrono::duration<double>(Clock::now() - wall).count();
    const double share = (processCpuSeconds() - cpu) / waited;
    return largestOnRoot(rank == late ? 0.0 : share);
}

// Seconds from the last rank's arrival until the last rank left, on rank 0. The lateness
// moves through one sleep period from round to round: a lateness that is a whole number of
// periods would always find the waiting ranks just awake.
double wakeUpDelay(const Barrier& barrier, int round) {
    const int late = size - 1;
    const double lateMs = wakeUpLatenessMs + std::fmod(3.7 * round, sleepPeriodMs);
    MPI_Barrier(MPI_COMM_WORLD);
    if (rank == late)
        std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(lateMs));
    double arrived = seconds(Clock::now());
    barrier();
    const double left = seconds(Clock::now());
    MPI_Bcast(&arrived, 1, MPI_DOUBLE, late, MPI_COMM_WORLD);
    return largestOnRoot(left - arrived);
}

void reportCpu(const char* who, int late, const Barrier& native, const Barrier& sleeping) {
    const double nativeShare = cpuShareWhileWaiting(native, late);
    const double sleepingShare = cpuShareWhileWaiting(sleeping, late);
    if (rank == 0) {
        std::printf("%-34s %12.2f %12.2f %10.4f\n", who, 100.0 * nativeShare, 100.0 * sleepingShare,
                    sleepingShare / nativeShare);
    }
}

void reportWakeUp(const char* name, const Barrier& barrier) {
    std::vector<double> delays;
    for (int round = 0; round < wakeUpRounds; ++round)
        delays.push_back(wakeUpDelay(barrier, round) * 1e3);
    if (rank == 0) {
        std::printf("%-20s %10.2f %10.2f %10.2f %14.2f\n", name, best(delays), median(delays),
                    worst(delays), worst(delays) / sleepPeriodMs);
    }
}

}  // namespace
}  // namespace tolm::bench

int main(int argc, char** argv) {
    using namespace tolm::bench;
    startMachine(argc, argv);
    tolm::Communicator* world = tolm::Machine::globalCommunicator();
    rank = static_cast<int>(world->myRank());
    size = static_cast<int>(world->size());
    if (size < 2) {
        std::fprintf(stderr, "Run with at least 2 ranks\n");
        tolm::Machine::stopCommunicators();
        return 1;
    }
    if (!pinToOneCore(world->myRank()))
        std::fprintf(stderr, "rank %d could not pin itself to a core\n", rank);
    const Barrier native = [] { MPI_Barrier(MPI_COMM_WORLD); };
    const Barrier sleeping = [world] { world->noSpinSynchronise(0.0); };
    const Barrier realistic = [world] { world->noSpinSynchronise(wakeUpSpinTime); };

    if (rank == 0) {
        std::printf("noSpinSynchronise against MPI_Barrier: driver %s, %d ranks\n",
                    TOLM_BENCH_DRIVER, size);
        std::printf("CPU of the busiest waiting rank over %.1f s of waiting (spin time 0 s)\n",
                    cpuWaitSeconds);
        std::printf("%-34s %12s %12s %10s\n", "who waits", "MPI_Barrier %", "noSpin %", "ratio");
    }
    reportCpu("the root, for the last rank", size - 1, native, sleeping);
    reportCpu("the others, for the root", 0, native, sleeping);

    if (rank == 0) {
        std::printf(
            "\nWake-up: ms from the last arrival until every rank left; %d rounds, "
            "last rank late by %.0f ms and up to a period, spin time %.2f s, sleep period "
            "%.0f ms\n",
            wakeUpRounds, wakeUpLatenessMs, wakeUpSpinTime, sleepPeriodMs);
        std::printf("%-20s %10s %10s %10s %14s\n", "barrier", "best ms", "median ms", "max ms",
                    "max / period");
    }
    reportWakeUp("MPI_Barrier", native);
    reportWakeUp("noSpinSynchronise", realistic);
    tolm::Machine::stopCommunicators();
    return 0;
}
