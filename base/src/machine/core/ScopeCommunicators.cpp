#include "machine/core/ScopeCommunicators.h"

#include <algorithm>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/comm/MpiCore.h"
#include "machine/comm/ShmemGroups.h"
#include "machine/topology/Affinity.h"
#include "machine/topology/CpuTopology.h"
#include "machine/topology/MachineHost.h"
#include "neo/InternalError.h"

namespace tolm {

ScopeCommunicators::ScopeCommunicators(Communicator& world, MachineHost& host) {
    buildHostScope(world, host);
    buildScope(SOCKET_SCOPE, host);
    buildScope(NUMA_SCOPE, host);
    buildSparse(world);
}

ScopeCommunicators::~ScopeCommunicators() {
    for (unsigned scope = 0; scope < numberOfShmemScopes; ++scope) {
        // Each slot is empty before its communicator goes, so that nothing reaches a
        // communicator while it is being freed.
        std::unique_ptr<Communicator>(_shared[scope].release()).reset();
        std::unique_ptr<Communicator>(_sparse[scope].release()).reset();
    }
}

Communicator& ScopeCommunicators::sharedMemory(ShmemScope scope) const {
    TOLM_ASSERT(_shared[scope], "Shared-memory communicators have not been built");
    return *_shared[scope];
}

void ScopeCommunicators::abandon() {
    for (auto& communicator : _shared) static_cast<void>(communicator.release());
    for (auto& communicator : _sparse) static_cast<void>(communicator.release());
}

void ScopeCommunicators::buildHostScope(Communicator& world, MachineHost& host) {
    if (MpiCore::hasMpiSharedMemory()) {
        _shared[HOST_SCOPE] = world.createSharedMemCommunicators();
        return;
    }
    // Without MPI shared memory the host's processes still get their communicator.
    std::vector<unsigned> ranks;
    host.getMpiRanks(ranks);
    std::sort(ranks.begin(), ranks.end());
    _shared[HOST_SCOPE] = world.createCommunicator(ranks);
}

// The socket or NUMA-node communicators, made from the host's shared-memory communicator.
void ScopeCommunicators::buildScope(ShmemScope scope, MachineHost& host) {
    TOLM_ASSERT(scope == SOCKET_SCOPE || scope == NUMA_SCOPE,
                "Can only create socket or NUMA node scope communicators.");
    const bool sockets = scope == SOCKET_SCOPE;
    const CpuTopology& topology = host.getCpuTopology();
    const auto unitsOf = [&](const AffinityMask& mask) {
        return sockets ? topology.getSocketsFromMask(mask) : topology.getNumaNodesFromMask(mask);
    };
    const std::vector<unsigned> units = unitsOf(Affinity::getProcessAffinity(topology));
    Communicator& hostComm = *_shared[HOST_SCOPE];
    std::vector<unsigned> counts;
    hostComm.allGather(static_cast<unsigned>(units.size()), counts);
    std::vector<unsigned> displacements;
    hostComm.getDefaultDisplacements(counts, displacements);
    std::vector<unsigned> all(displacements.back() + counts.back());
    hostComm.allGatherVector(units.data(), counts[hostComm.myRank()], all.data(), counts, {});
    ShmemGroups::UnitLists lists(counts.size());
    for (unsigned rank = 0; rank < counts.size(); ++rank) {
        const auto first = all.begin() + displacements[rank];
        lists[rank].assign(first, first + counts[rank]);
    }
    unsigned numberOfUnits = 0;
    if (ShmemGroups::anySpansSeveral(lists)) {
        // collective over the host
        numberOfUnits = static_cast<unsigned>(unitsOf(host.getHostAffinity()).size());
        if (numberOfUnits == 0)
            numberOfUnits = sockets ? topology.getNumberSockets() : topology.getNumberNumaNodes();
    }
    _shared[scope] = hostComm.createCommunicator(
        ShmemGroups::membersOf(hostComm.myRank(), lists, numberOfUnits));
}

// The first process of every group of every scope: one flag word per process tells the others
// which groups it leads.
void ScopeCommunicators::buildSparse(Communicator& world) {
    unsigned leads = 0;
    for (unsigned scope = 0; scope < numberOfShmemScopes; ++scope) {
        if (_shared[scope]->myRank() == 0)
            leads |= 1u << scope;
    }
    std::vector<unsigned> everyone;
    world.allGather(leads, everyone);
    for (unsigned scope = 0; scope < numberOfShmemScopes; ++scope) {
        std::vector<unsigned> leaders;
        for (unsigned rank = 0; rank < everyone.size(); ++rank) {
            if (everyone[rank] >> scope & 1u)
                leaders.push_back(rank);
        }
        _sparse[scope] = world.createCommunicator(leaders);
    }
}

}  // namespace tolm
