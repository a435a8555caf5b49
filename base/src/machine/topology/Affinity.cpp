#include "machine/topology/Affinity.h"

#include <hwloc.h>
#include <sys/types.h>

#include <initializer_list>

#include "machine/topology/CpuTopology.h"

namespace tolm {
namespace {

constexpr int process = HWLOC_CPUBIND_PROCESS;
constexpr int thread = HWLOC_CPUBIND_THREAD;
constexpr int processStrict = process | HWLOC_CPUBIND_STRICT;
constexpr int threadStrict = thread | HWLOC_CPUBIND_STRICT;

// Tries `flags` in order; true at the first that the system accepts.
bool bind(hwloc_topology_t topology, hwloc_const_bitmap_t set, std::initializer_list<int> flags) {
    if (!topology || hwloc_bitmap_iszero(set))
        return false;
    for (const int flag : flags) {
        if (hwloc_set_cpubind(topology, set, flag) == 0)
            return true;
    }
    return false;
}

}  // namespace

AffinityMask Affinity::getProcessAffinity(const CpuTopology& topology) {
    AffinityMask mask;
    hwloc_topology_t hwloc = topology.getHwlocTopology();
    if (!hwloc)
        return mask;
    for (const int flag : {process, 0}) {
        if (hwloc_get_cpubind(hwloc, mask.getHwlocMask(), flag) == 0)
            return mask;
    }
    mask.clear();
    return mask;
}

AffinityMask Affinity::getProcessAffinity(const CpuTopology& topology, unsigned pid) {
    AffinityMask mask;
    hwloc_topology_t hwloc = topology.getHwlocTopology();
    if (hwloc && hwloc_get_proc_cpubind(hwloc, static_cast<pid_t>(pid), mask.getHwlocMask(), 0))
        mask.clear();
    return mask;
}

AffinityMask Affinity::getThreadAffinity(const CpuTopology& topology) {
    AffinityMask mask;
    hwloc_topology_t hwloc = topology.getHwlocTopology();
    if (hwloc && hwloc_get_cpubind(hwloc, mask.getHwlocMask(), thread))
        mask.clear();
    return mask;
}

AffinityMask Affinity::getProcessCpuLocation(const CpuTopology& topology) {
    AffinityMask mask;
    hwloc_topology_t hwloc = topology.getHwlocTopology();
    if (!hwloc)
        return mask;
    for (const int flag : {process, 0}) {
        if (hwloc_get_last_cpu_location(hwloc, mask.getHwlocMask(), flag) == 0)
            return mask;
    }
    mask.clear();
    return mask;
}

bool Affinity::isProcessBound(const CpuTopology& topology) {
    return topology.getPhysicalCoresFromMask(getProcessAffinity(topology)).size() == 1;
}

bool Affinity::isThreadBound(const CpuTopology& topology) {
    return topology.getPhysicalCoresFromMask(getThreadAffinity(topology)).size() == 1;
}

bool Affinity::setProcessAffinity(const CpuTopology& topology, const AffinityMask& mask) {
    return bind(topology.getHwlocTopology(), mask.getHwlocMask(), {processStrict, process, 0});
}

bool Affinity::clearProcessAffinity(const CpuTopology& topology) {
    return setProcessAffinity(topology,
                              topology.restrictToAvailableResources(topology.getTopologyMask()));
}

bool Affinity::setProcessAffinityToCurrentCpuLocation(const CpuTopology& topology) {
    AffinityMask location = getProcessCpuLocation(topology);
    // The threads of a process may have last run on several LPUs: the process takes one.
    hwloc_bitmap_singlify(location.getHwlocMask());
    return setProcessAffinity(topology, location);
}

bool Affinity::setThreadAffinity(const CpuTopology& topology, const AffinityMask& mask) {
    return bind(topology.getHwlocTopology(), mask.getHwlocMask(), {threadStrict, thread});
}

bool Affinity::clearThreadAffinity(const CpuTopology& topology) {
    return setThreadAffinity(topology,
                             topology.restrictToAvailableResources(topology.getTopologyMask()));
}

bool Affinity::setThreadAffinityToCurrentCpuLocation(const CpuTopology& topology) {
    hwloc_topology_t hwloc = topology.getHwlocTopology();
    AffinityMask location;
    if (!hwloc || hwloc_get_last_cpu_location(hwloc, location.getHwlocMask(), thread) != 0)
        return false;
    return setThreadAffinity(topology, location);
}

}  // namespace tolm
