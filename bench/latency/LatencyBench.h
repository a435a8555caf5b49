// What the latency benchmarks share: starting the machine the way a server process does,
// pinning each rank to a core, and the summaries of repeated measurements.
#pragma once
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"

namespace tolm::bench {

// Starts MPI through the machine with the driver this benchmark was built for (the launcher
// does not pass "-mpi").
inline void startMachine(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    static std::string option = "-mpi";
    static std::string driver = TOLM_BENCH_DRIVER;
    arguments.push_back(option.data());
    arguments.push_back(driver.data());
    Machine::ArgumentMap consumed;
    Machine::startCommunicators(int(arguments.size()), arguments.data(), consumed);
}

// One core per rank, whatever the launcher did; false when the system refuses.
inline bool pinToOneCore(unsigned int rank) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<int>(rank % cores), &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

// startMachine, then the checks every paired benchmark makes: at least two ranks (else it
// says so, stops MPI and gives null) and each rank pinned to a core (a warning when not).
inline Communicator* startPairedBenchmark(int argc, char** argv) {
    startMachine(argc, argv);
    Communicator* world = Machine::globalCommunicator();
    if (world->size() < 2) {
        std::fprintf(stderr, "Run with at least 2 ranks\n");
        Machine::stopCommunicators();
        return nullptr;
    }
    if (!pinToOneCore(world->myRank()))
        std::fprintf(stderr, "rank %u could not pin itself to a core; figures will be noisy\n",
                     world->myRank());
    return world;
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline double best(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

inline double worst(const std::vector<double>& values) {
    return *std::max_element(values.begin(), values.end());
}

}  // namespace tolm::bench
