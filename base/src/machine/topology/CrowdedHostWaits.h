#pragma once
#include <memory>

namespace tolm {

class MachineHost;

// Whether this process's blocking MPI calls yield the processor while they wait
// (MpiCore::setYieldingWaits): during the host map's construction they do, since one process
// per host discovers the topology while the others wait; after it, only where asked for
// (TOLM_MPI_YIELD_WAIT=1, or "-yieldwait" later). They are not turned on by themselves on a
// host that runs more processes than LPUs (MachineHost::hasMoreProcessesThanLpus): doing so
// hung the scope-communicator set-up of a split-NUMA host at 3 and 4 ranks under both MPIs.
class CrowdedHostWaits {
  public:
    // Builds the host map (collective over the job in a parallel run) with yielding waits.
    static std::unique_ptr<MachineHost> buildHostMap();
};

}  // namespace tolm
