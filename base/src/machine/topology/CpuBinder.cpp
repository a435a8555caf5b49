#include "machine/topology/CpuBinder.h"

#include "machine/topology/Affinity.h"
#include "machine/topology/CpuTopology.h"
#include "machine/core/Machine.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

[[noreturn]] void invalidPolicy() {
    throw InternalError("Invalid CpuBindingPolicy specified", "false", __FILE__, __LINE__);
}

}  // namespace

bool CpuBinder::bind(unsigned intraHostRank, unsigned numberProcesses, const CpuTopology& topology,
                     const AffinityMask& available, unsigned policy) {
    if (policy == Machine::LeastLoad)
        return Affinity::setProcessAffinityToCurrentCpuLocation(topology);
    const unsigned lpu = selectLpu(intraHostRank, numberProcesses, topology, available, policy);
    return Affinity::setProcessAffinity(topology, topology.getLpuMask(lpu));
}

unsigned CpuBinder::selectLpu(unsigned intraHostRank, unsigned numberProcesses,
                              const CpuTopology& topology, const AffinityMask& available,
                              unsigned policy) {
    if (policy != Machine::Bandwidth && policy != Machine::Latency)
        invalidPolicy();
    const std::vector<unsigned> lpus = topology.getLpusFromMask(available);
    const std::vector<unsigned> selected =
        topology.getLpuSubset(lpus, numberProcesses, policy == Machine::Bandwidth, true);
    TOLM_ASSERT(!selected.empty(), "No LPU is available to bind to");
    return selected[intraHostRank % selected.size()];
}

std::vector<unsigned> CpuBinder::selectThreadLpus(unsigned count, const CpuTopology& topology,
                                                  const AffinityMask& processMask) {
    const std::vector<unsigned> selected =
        topology.getLpuSubset(topology.getLpusFromMask(processMask), count, true, true);
    std::vector<unsigned> lpus;
    for (unsigned thread = 0; thread < count && !selected.empty(); ++thread)
        lpus.push_back(selected[thread % selected.size()]);
    return lpus;
}

}  // namespace tolm
