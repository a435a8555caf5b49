#include "scene/HostCommands.h"

#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "machine/topology/ProcessAffinitySummary.h"
#include "neo/Controller.h"

namespace tolm {
namespace {

void hostMap(const Properties&, Properties& response) {
    const MachineHost& host = Machine::getHost();
    response = host.getStartUpBinding();
    response.set("numberHosts", host.getNumberHosts());
    response.set("policy", ProcessAffinitySummary::policyName());
}

}  // namespace

void registerHostCommands(Controller& controller) {
    controller.registerCommand("HostMap", hostMap);
}

}  // namespace tolm
