#include "machine/topology/CrowdedHostWaits.h"

#include "machine/comm/Communicator.h"
#include "machine/comm/MpiCore.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"

namespace tolm {

namespace {

// Whether any process of the job wants yielding waits; called while every process yields.
bool anyProcessWants(bool wanted) {
    int any = wanted ? 1 : 0;
    Machine::globalCommunicator()->allReduce(any, QMX_MPI_MAX);
    return any != 0;
}

}  // namespace

std::unique_ptr<MachineHost> CrowdedHostWaits::buildHostMap() {
    if (!Machine::isParallel())
        return std::make_unique<MachineHost>();
    const bool asked = MpiCore::yieldingWaits();
    MpiCore::setYieldingWaits(true);
    auto host = std::make_unique<MachineHost>();
    MpiCore::setYieldingWaits(anyProcessWants(asked || host->hasMoreProcessesThanLpus()));
    return host;
}

}  // namespace tolm
