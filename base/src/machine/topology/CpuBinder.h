#pragma once
#include <vector>

#include "machine/topology/AffinityMask.h"

namespace tolm {

class CpuTopology;

// Binds the processes of one host to LPUs, one process at a time: each process calls `bind`
// with its rank among the host's processes, and all of them choose from the same available
// LPUs, so that together they occupy distinct LPUs without talking to each other.
//
// Policies (Machine::CpuBindingPolicy, chosen by "-cpubind"):
//   0 bandwidth  spread over NUMA nodes first, then over physical cores
//   1 latency    spread over physical cores only, filling NUMA nodes in order
//   2 leastload  stay on the LPU the process runs on at that moment
//
// Errors: any other policy is an InternalError "Invalid CpuBindingPolicy specified". The
// caller makes sure the host is not oversubscribed: `available` must hold at least one LPU.
class CpuBinder {
  public:
    CpuBinder() = delete;

    // Binds the calling process; true when the system accepted the binding.
    static bool bind(unsigned intraHostRank, unsigned numberProcesses, const CpuTopology& topology,
                     const AffinityMask& available, unsigned policy);
    // The LPU that policy 0 or 1 gives the process of rank `intraHostRank` (policy 2 chooses
    // no LPU: it is an invalid policy here).
    static unsigned selectLpu(unsigned intraHostRank, unsigned numberProcesses,
                              const CpuTopology& topology, const AffinityMask& available,
                              unsigned policy);
    // One LPU for each of `count` threads of a process that may run on `processMask`, spread
    // as policy 0 spreads processes; threads beyond the LPUs wrap round.
    static std::vector<unsigned> selectThreadLpus(unsigned count, const CpuTopology& topology,
                                                  const AffinityMask& processMask);
};

}  // namespace tolm
