#include "machine/topology/CrowdedHostWaits.h"

#include "machine/comm/MpiCore.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"

namespace tolm {

std::unique_ptr<MachineHost> CrowdedHostWaits::buildHostMap() {
    if (!Machine::isParallel())
        return std::make_unique<MachineHost>();
    const bool forced = MpiCore::yieldingWaits();
    MpiCore::setYieldingWaits(true);
    auto host = std::make_unique<MachineHost>();
    MpiCore::setYieldingWaits(forced);
    return host;
}

}  // namespace tolm
