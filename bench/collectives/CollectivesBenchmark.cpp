// Broadcast and all-reduce (doubles, sum, in place) through Communicator beside the same native
// MPI calls on MPI_COMM_WORLD, all in the same job, from 8 B to 256 MiB. Then a broadcast of
// 256 MiB that Communicator splits into 16 MiB pieces, beside one native 256 MiB broadcast.
// Built once per MPI; the machine starts MPI through that MPI's driver. Run with 2 ranks.
//
// The broadcasts' root moves to the next rank at every call, so that each broadcast starts
// where the previous one's data arrived: the loop measures the latency of a broadcast, not how
// far a root can run ahead of its receivers (which MPI's flow control decides, differently
// from run to run).
//
// Both sides are timed in rounds, taking turns at going first. A side's time for a round is
// the slowest rank's; the table shows each side's best round, the ratio of the best rounds
// and the median of the ratios within each round.
#include <mpi.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "../latency/LatencyBench.h"
#include "machine/comm/Communicator.h"
#include "machine/comm/CommunicatorCollectives.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::bench {
namespace {

constexpr std::uint64_t KiB = 1024;
constexpr std::uint64_t MiB = KiB * KiB;
constexpr std::uint64_t largest = 256 * MiB;
constexpr std::uint64_t splitLimit = 16 * MiB;

int rank = 0;
long ranks = 1;
Communicator* world = nullptr;
std::vector<double> data;  // zeros, so that repeated sums stay finite

using Run = std::function<void(std::uint64_t count, long iterations)>;

struct Size {
    std::uint64_t bytes;
    long iterations;
    int rounds;
};

const Size sizes[] = {
    {8, 20000, 31}, {KiB, 10000, 31}, {64 * KiB, 1000, 21},
    {MiB, 50, 11},  {16 * MiB, 4, 7}, {largest, 1, 5},
};

void nativeBroadcast(std::uint64_t count, long iterations) {
    for (long i = 0; i < iterations; ++i)
        MPI_Bcast(data.data(), static_cast<int>(count), MPI_DOUBLE, static_cast<int>(i % ranks),
                  MPI_COMM_WORLD);
}

void communicatorBroadcast(std::uint64_t count, long iterations) {
    for (long i = 0; i < iterations; ++i)
        world->broadcast(data.data(), count, static_cast<unsigned>(i % ranks));
}

void nativeAllReduce(std::uint64_t count, long iterations) {
    for (long i = 0; i < iterations; ++i)
        MPI_Allreduce(MPI_IN_PLACE, data.data(), static_cast<int>(count), MPI_DOUBLE, MPI_SUM,
                      MPI_COMM_WORLD);
}

void communicatorAllReduce(std::uint64_t count, long iterations) {
    for (long i = 0; i < iterations; ++i)
        world->allReduce(data.data(), count, QMX_MPI_SUM);
}

// Seconds per iteration on the slowest rank.
double secondsPerIteration(const Run& run, std::uint64_t count, long iterations) {
    MPI_Barrier(MPI_COMM_WORLD);
    const auto start = std::chrono::steady_clock::now();
    run(count, iterations);
    const auto stop = std::chrono::steady_clock::now();
    double seconds = std::chrono::duration<double>(stop - start).count() / double(iterations);
    MPI_Allreduce(MPI_IN_PLACE, &seconds, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
    return seconds;
}

struct Timings {
    std::vector<double> native;
    std::vector<double> communicator;
    std::vector<double> ratios;  // Communicator over native, within one round
};

Timings alternate(const Run& native, const Run& communicator, std::uint64_t count, long iterations,
                  int rounds) {
    Timings timings;
    native(count, 1);  // warm up both paths
    communicator(count, 1);
    for (int round = 0; round < rounds; ++round) {
        const bool nativeFirst = round % 2 == 0;
        if (nativeFirst)
            timings.native.push_back(secondsPerIteration(native, count, iterations));
        timings.communicator.push_back(secondsPerIteration(communicator, count, iterations));
        if (!nativeFirst)
            timings.native.push_back(secondsPerIteration(native, count, iterations));
        timings.ratios.push_back(timings.communicator.back() / timings.native.back());
    }
    return timings;
}

std::string sizeText(std::uint64_t bytes) {
    if (bytes >= MiB)
        return std::to_string(bytes / MiB) + " MiB";
    if (bytes >= KiB)
        return std::to_string(bytes / KiB) + " KiB";
    return std::to_string(bytes) + " B";
}

void measure(const char* name, const Run& native, const Run& communicator, const Size& size) {
    const Timings timings =
        alternate(native, communicator, size.bytes / sizeof(double), size.iterations, size.rounds);
    if (rank != 0)
        return;
    const double nativeTime = best(timings.native) * 1e6;
    const double communicatorTime = best(timings.communicator) * 1e6;
    std::printf("%-10s %8s %5ldx%-3d %12.2f %12.2f %8.3f %8.3f\n", name,
                sizeText(size.bytes).c_str(), size.iterations, size.rounds, nativeTime,
                communicatorTime, communicatorTime / nativeTime, median(timings.ratios));
}

// What `call` prints to the standard output, which is taken away from the terminal meanwhile.
std::string captureOutput(const std::function<void()>& call) {
    std::fflush(stdout);
    FILE* file = std::tmpfile();
    const int saved = dup(STDOUT_FILENO);
    dup2(fileno(file), STDOUT_FILENO);
    call();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::rewind(file);
    std::string text;
    char line[512];
    while (std::fgets(line, sizeof(line), file) != nullptr)
        text += line;
    std::fclose(file);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

void measureSplitBroadcast() {
    const std::uint64_t previous = world->getMaxBufferSize();
    const std::string warning = captureOutput([] { world->setMaxBufferSize(splitLimit); });
    const Timings timings =
        alternate(nativeBroadcast, communicatorBroadcast, largest / sizeof(double), 1, 5);
    captureOutput([previous] { world->setMaxBufferSize(previous); });
    if (rank != 0)
        return;
    const double native = double(largest) / best(timings.native) / 1e9;
    const double communicator = double(largest) / best(timings.communicator) / 1e9;
    std::printf("\nSplit broadcast of %s, Communicator limited to %s per call (%llu pieces)\n",
                sizeText(largest).c_str(), sizeText(splitLimit).c_str(),
                static_cast<unsigned long long>(largest / splitLimit));
    std::printf("(Communicator: \"%s\")\n", warning.c_str());
    std::printf("%-32s %10s %10s %8s %8s\n", "GB/s, best of 5 rounds", "native", "Comm.",
                "comm/nat", "median");
    std::printf("%-32s %10.2f %10.2f %8.3f %8.3f\n", "1 native call / 16 Comm. pieces", native,
                communicator, communicator / native, 1.0 / median(timings.ratios));
}

void printHeader(int size) {
    std::printf(
        "Communicator collectives: driver %s, %d ranks (doubles; all-reduce: sum, in "
        "place)\n",
        TOLM_BENCH_DRIVER, size);
    std::printf(
        "us per call: best round per side; comm/nat: of the best rounds; median: of "
        "per-round comm/nat ratios\n");
    std::printf("%-10s %8s %9s %12s %12s %8s %8s\n", "operation", "size", "it.xrnd", "native",
                "Comm.", "comm/nat", "median");
}

}  // namespace
}  // namespace tolm::bench

int main(int argc, char** argv) {
    using namespace tolm::bench;
    world = startPairedBenchmark(argc, argv);
    if (!world)
        return 1;
    rank = static_cast<int>(world->myRank());
    ranks = world->size();
    data.assign(largest / sizeof(double), 0.0);
    if (rank == 0)
        printHeader(static_cast<int>(world->size()));
    for (const Size& size : sizes)
        measure("broadcast", nativeBroadcast, communicatorBroadcast, size);
    for (const Size& size : sizes)
        measure("allreduce", nativeAllReduce, communicatorAllReduce, size);
    measureSplitBroadcast();
    tolm::Machine::stopCommunicators();
    return 0;
}
