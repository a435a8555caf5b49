// The round trip of a command that does nothing through the real command path (the master's
// controller scatters it to the slaves' command loops and gathers their responses), with the
// slaves spinning between commands and without, beside a native broadcast of the command text
// plus a gather of an int, and the same with the all-reduce of the path's floating-point check,
// all in the same job. Then the CPU the idle slaves use while the master sleeps between two
// commands. Built once per MPI; the machine starts MPI through that MPI's driver. Run with 2 or
// 4 ranks.
//
// The sides are timed in rounds, each side taking each place in a round in turn. The table
// shows each side's best round, its ratio to native's best round and the median of the
// ratios within each round.
#include <mpi.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "../latency/LatencyBench.h"
#include "machine/commands/CommandController.h"
#include "machine/comm/Communicator.h"
#include "machine/commands/GlobalCondition.h"
#include "neo/Controller.h"

namespace tolm::bench {
namespace {

constexpr int rounds = 9;
constexpr const char* nopText = R"({"command":"Nop"})";
constexpr auto idleSleep = std::chrono::seconds(3);
// The idle stretch measured on a slave, counted from the first command's arrival: past the
// one second of polling before the slave sleeps, and before the second command arrives.
constexpr auto idleFrom = std::chrono::milliseconds(1100);
constexpr auto idleTo = std::chrono::milliseconds(2900);

int rank = 0;
bool master = false;
std::function<void()> onNop;  // what the slaves' Nop does besides nothing

using Run = std::function<double(long)>;  // the master's seconds for that many round trips

void registerNop() {
    Controller::getSingleton().registerCommand("Nop", [](const Properties&, Properties&) {
        if (onNop)
            onNop();
    });
}

// Collective: a fresh command controller (the previous one released its slaves for good).
CommandController& freshController(bool spinWait) {
    CommandController::reset();
    CommandController& controller = CommandController::getSingleton();
    controller.setSpinWait(GlobalCondition(spinWait, GlobalCondition::ON_ALL_INVARIANT));
    return controller;
}

double commandRoundTrips(long count, bool spinWait) {
    CommandController& controller = freshController(spinWait);
    MPI_Barrier(MPI_COMM_WORLD);
    if (!master) {
        controller.processCommands();
        return 0;
    }
    const Properties command(nopText);
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i)
        Controller::getSingleton().execute(command);
    const auto stop = std::chrono::steady_clock::now();
    controller.releaseSlaves();
    return std::chrono::duration<double>(stop - start).count();
}

// What the command path sends and gathers, with the text the scatter sends; with
// `withCheck`, also the floating-point check's all-reduce that the path makes before its
// gather: the least any implementation of that path can cost.
double nativeRoundTrips(long count, bool withCheck) {
    const std::string text = master ? Properties(nopText).toString() : std::string();
    std::vector<char> received(text.begin(), text.end());
    int size = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    std::vector<int> answers(master ? size : 0);
    MPI_Barrier(MPI_COMM_WORLD);
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i) {
        int length = static_cast<int>(text.size());
        MPI_Bcast(&length, 1, MPI_INT, 0, MPI_COMM_WORLD);
        received.resize(length);
        MPI_Bcast(received.data(), length, MPI_CHAR, 0, MPI_COMM_WORLD);
        int answer = 0;
        if (withCheck)
            MPI_Allreduce(MPI_IN_PLACE, &answer, 1, MPI_INT, MPI_SUM, MPI_COMM_WORLD);
        MPI_Gather(&answer, 1, MPI_INT, answers.data(), 1, MPI_INT, 0, MPI_COMM_WORLD);
    }
    const auto stop = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(stop - start).count();
}

void measureRoundTrips(long count) {
    const Run sides[] = {[](long n) { return nativeRoundTrips(n, false); },
                         [](long n) { return nativeRoundTrips(n, true); },
                         [](long n) { return commandRoundTrips(n, true); },
                         [](long n) { return commandRoundTrips(n, false); }};
    const char* names[] = {"native Bcast x2 + Gather", "native + Allreduce (the path's)",
                           "Nop command, spin wait on", "Nop command, spin wait off"};
    constexpr int nSides = 4;
    std::vector<double> times[nSides];
    std::vector<double> ratios[nSides];  // over native, within one round
    for (const Run& side : sides)
        side(count / 10 + 1);  // warm up every path
    for (int round = 0; round < rounds; ++round) {
        for (int k = 0; k < nSides; ++k) {
            const int side = (round + k) % nSides;
            times[side].push_back(sides[side](count) / double(count) * 1e6);
        }
        for (int side = 0; side < nSides; ++side)
            ratios[side].push_back(times[side].back() / times[0].back());
    }
    if (!master)
        return;
    for (int side = 0; side < nSides; ++side)
        std::printf("%-28s %10.2f %9.3f %8.3f\n", names[side], best(times[side]),
                    best(times[side]) / best(times[0]), median(ratios[side]));
}

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// A slave's share of a core over the idle stretch after the first Nop reached it.
void sampleIdleShare(std::chrono::steady_clock::time_point arrival, double& share) {
    std::this_thread::sleep_until(arrival + idleFrom);
    const double cpuFrom = processCpuSeconds();
    const auto wallFrom = std::chrono::steady_clock::now();
    std::this_thread::sleep_until(arrival + idleTo);
    const double cpu = processCpuSeconds() - cpuFrom;
    share =
        cpu / std::chrono::duration<double>(std::chrono::steady_clock::now() - wallFrom).count();
}

// The master runs a Nop, sleeps, runs another; the slaves wait with spin wait off.
void measureIdleSlaves() {
    CommandController& controller = freshController(false);
    double share = 0;
    std::thread sampler;
    onNop = [&] {
        if (!master && !sampler.joinable())
            sampler =
                std::thread(sampleIdleShare, std::chrono::steady_clock::now(), std::ref(share));
    };
    MPI_Barrier(MPI_COMM_WORLD);
    if (master) {
        Controller::getSingleton().execute(Properties(nopText));
        std::this_thread::sleep_for(idleSleep);
        Controller::getSingleton().execute(Properties(nopText));
        controller.releaseSlaves();
    } else {
        controller.processCommands();
        sampler.join();
    }
    onNop = nullptr;
    int size = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    std::vector<double> shares(size);
    MPI_Gather(&share, 1, MPI_DOUBLE, shares.data(), 1, MPI_DOUBLE, 0, MPI_COMM_WORLD);
    if (!master)
        return;
    std::printf(
        "\nIdle slaves, spin wait off: the master sleeps %lld s between two commands;\n"
        "each slave's process CPU from %.1f s to %.1f s after the first command\n",
        static_cast<long long>(idleSleep.count()), idleFrom.count() / 1000.0,
        idleTo.count() / 1000.0);
    for (int slave = 1; slave < size; ++slave)
        std::printf("  rank %d: %7.3f %% of a core\n", slave, shares[slave] * 100);
}

void printHeader(int size, long count) {
    std::printf(
        "Command round trip: driver %s, %d ranks, %ld commands per round, %d rounds "
        "per side\n",
        TOLM_BENCH_DRIVER, size, count, rounds);
    std::printf(
        "us per command on the master: best round per side; x native: of the best "
        "rounds; median: of per-round ratios\n");
    std::printf("%-28s %10s %9s %8s\n", "side", "us", "x native", "median");
}

}  // namespace
}  // namespace tolm::bench

int main(int argc, char** argv) {
    using namespace tolm::bench;
    tolm::Communicator* world = startPairedBenchmark(argc, argv);
    if (!world)
        return 1;
    rank = static_cast<int>(world->myRank());
    master = tolm::Machine::isMaster();
    // More ranks than cores: spinning ranks share a core, and a round trip takes time slices.
    const bool crowded = world->size() > std::max(1u, std::thread::hardware_concurrency());
    const long count = crowded ? 50 : 1000;
    tolm::CommandController::getSingleton();
    registerNop();
    if (master)
        printHeader(static_cast<int>(world->size()), count);
    measureRoundTrips(count);
    measureIdleSlaves();
    tolm::CommandController::reset();
    tolm::Machine::stopCommunicators();
    return 0;
}
