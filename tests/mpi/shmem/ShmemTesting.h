#pragma once
// Helpers of the shared-memory tests: communicators as lists of global ranks, and where this
// process may run.
#include <algorithm>
#include <string>
#include <vector>

#include "machine/CommunicatorTesting.h"
#include "machine/topology/MachineHost.h"

namespace tolm::shmemtest {

using List = std::vector<unsigned>;

using mpitest::membersOf;
using mpitest::world;

inline unsigned myRank() {
    return Machine::getPartitionId();
}

// The global ranks for which `here` holds, on every rank.
inline List ranksWhere(bool here) {
    List flags;
    world().allGather(static_cast<unsigned>(here), flags);
    List ranks;
    for (unsigned rank = 0; rank < flags.size(); ++rank) {
        if (flags[rank])
            ranks.push_back(rank);
    }
    return ranks;
}

// "{0,1} {2,3}": every rank's group of `scope`, each group once, in order of first rank.
inline std::string groupsText(ShmemScope scope) {
    const List mine = membersOf(Machine::sharedMemCommunicator(scope));
    List firsts;
    world().allGather(mine.front(), firsts);
    std::string text;
    for (unsigned rank = 0; rank < firsts.size(); ++rank) {
        if (firsts[rank] != rank)
            continue;
        std::string group;
        for (unsigned other = 0; other < firsts.size(); ++other) {
            if (firsts[other] == rank)
                group.append(group.empty() ? "" : ",").append(std::to_string(other));
        }
        text += (text.empty() ? "{" : " {") + group + "}";
    }
    return text;
}

}  // namespace tolm::shmemtest
