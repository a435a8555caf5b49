#pragma once
// What the host map's MPI tests expect, worked out without the host map: the host of every
// rank from the simulated hosts' names, the processors every rank was allowed at start-up
// from the operating system.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "machine/CommunicatorTesting.h"
#include "machine/topology/AffinityMask.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "topology/BindingTestSupport.h"

namespace tolm::hostmaptest {

using mpitest::membersOf;
using mpitest::world;

inline unsigned myRank() {
    return Machine::getPartitionId();
}

inline AffinityMask& startUpAffinity() {
    static AffinityMask mask;
    return mask;
}

// Before the machine starts: where the launcher (or taskset) let this process run.
inline void recordStartUpAffinity() {
    startUpAffinity() = test::threadAffinityFromSystem();
}

// The host of rank `rank`: under simulated-hosts.sh, word (rank mod n) of
// TOLM_SIMULATED_HOSTS; otherwise every rank runs on this machine.
inline std::string expectedHost(unsigned rank) {
    const char* simulated = std::getenv("TOLM_SIMULATED_HOSTS");
    if (!simulated)
        return Platform::process().hostName();
    std::vector<std::string> names;
    std::istringstream words(simulated);
    for (std::string name; words >> name;)
        names.push_back(name);
    return names[rank % names.size()];
}

// Global ranks on the host of `rank`, ascending.
inline std::vector<unsigned> expectedRanksOnHostOf(unsigned rank) {
    std::vector<unsigned> ranks;
    for (unsigned other = 0; other < Machine::nProcesses(); ++other) {
        if (expectedHost(other) == expectedHost(rank))
            ranks.push_back(other);
    }
    return ranks;
}

// Every rank's mask, by global rank.
inline std::vector<AffinityMask> allGatherMasks(const AffinityMask& mine) {
    const std::vector<unsigned> lpus(mine.begin(), mine.end());
    std::vector<unsigned> counts;
    world().allGather(static_cast<unsigned>(lpus.size()), counts);
    unsigned total = 0;
    for (const unsigned count : counts)
        total += count;
    std::vector<unsigned> all(total);
    world().allGatherVector(lpus.data(), counts[world().myRank()], all.data(), counts, {});
    std::vector<AffinityMask> masks(counts.size());
    unsigned next = 0;
    for (unsigned rank = 0; rank < counts.size(); ++rank) {
        for (unsigned i = 0; i < counts[rank]; ++i)
            masks[rank].set(all[next++]);
    }
    return masks;
}

// True on every rank when `here` holds on every rank.
inline bool everywhere(bool here) {
    int value = here ? 1 : 0;
    world().allReduce(value, QMX_MPI_MIN);
    return value == 1;
}

}  // namespace tolm::hostmaptest
