#pragma once
#include <memory>

namespace tolm {

class MachineHost;

// Whether this process's blocking MPI calls yield the processor while they wait
// (MpiCore::setYieldingWaits) is the host map's to decide: they do on a host that runs more
// processes than LPUs (MachineHost::hasMoreProcessesThanLpus), where a spinning wait takes the
// processor from the process it waits for, and when the environment forced them
// (TOLM_MPI_YIELD_WAIT=1); "-yieldwait" turns them on later, for every host.
class CrowdedHostWaits {
  public:
    // Builds the host map (collective over the job in a parallel run) and decides. Its own
    // waits yield, as while one process per host discovers the topology the others wait.
    static std::unique_ptr<MachineHost> buildHostMap();
};

}  // namespace tolm
