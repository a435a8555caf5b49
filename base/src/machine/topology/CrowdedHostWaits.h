#pragma once
#include <memory>

namespace tolm {

class MachineHost;

// Whether this process's blocking MPI calls yield the processor while they wait
// (MpiCore::setYieldingWaits). During the host map's construction they do, since one process
// per host discovers the topology while the others wait. After it they do in the whole job when
// some host runs more processes than LPUs (MachineHost::hasMoreProcessesThanLpus) or some
// process asked for them (TOLM_MPI_YIELD_WAIT=1; "-yieldwait" turns them on later, on every
// process alike). The choice is the job's, not the host's: a yielding process runs a collective
// in its non-blocking form, which never matches the blocking form on another process, so every
// process of a communicator must choose alike.
class CrowdedHostWaits {
  public:
    // Builds the host map (collective over the job in a parallel run) with yielding waits.
    static std::unique_ptr<MachineHost> buildHostMap();
};

}  // namespace tolm
