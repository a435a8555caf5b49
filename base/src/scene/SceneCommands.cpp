#include "scene/SceneCommands.h"

#include "machine/comm/Communicator.h"
#include "scene/HostCommands.h"

#include "machine/comm/MpiCore.h"
#include "machine/core/Machine.h"
#include "machine/core/ParameterInitialValues.h"
#include "machine/remote/RemoteShellFactory.h"
#include "neo/Controller.h"
#include "neo/TolmVersion.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

void echo(const Properties& command, Properties& response) {
    response = command;
}

std::string roleName() {
    if (Machine::isSerial())
        return "Serial";
    return Machine::isMaster() ? "Master" : "Slave";
}

Properties settings() {
    const Machine& machine = Machine::getSingleton();
    Properties settings;
    settings.set("temporaryDirectory", StringHelper::toString(machine.getTemporaryDirectory()));
    settings.set("threaded", Machine::isThreaded());
    settings.set("cpuBind", Machine::settings().bindingPolicyName());
    settings.set("cpuBindContentionTest", Machine::isCpuBindingContentionTestEnabled());
    settings.set("threadBindingAttributes", Machine::getThreadBindingAttributes());
    settings.set("ioDebug", Machine::getIOVerbosityLevel());
    settings.set("parallelIo", machine.isParallelIo());
    settings.set("yieldingWaits", Machine::isParallel() && MpiCore::yieldingWaits());
    settings.set("printPids", Machine::getPrintpids());
    settings.set("devErrorChecking", machine.hasDevErrorChecking());
    settings.set("deleteOnExit", machine.isDeleteOnExit());
    settings.set(
        "remoteShell",
        StringHelper::toString(RemoteShellFactory::getSingleton().getDefaultRemoteShellCommand()));
    settings.set("jobManagerUrl", StringHelper::toString(machine.getJobManagerURL()));
    settings.set("taskId", machine.getTaskId());
    settings.set("parameters", ParameterInitialValues::getSingleton().getParameterValues());
    return settings;
}

// The process id and host of every rank, in rank order (collective in a parallel run).
void addProcesses(Properties& response) {
    const int pid = Platform::process().pid();
    if (Machine::isSerial()) {
        response.set("pids", std::vector<int>{pid});
        return;
    }
    Communicator& global = *Machine::globalCommunicator();
    std::vector<int> pids;
    global.gather(pid, pids, Communicator::masterRank());
    std::vector<std::string> hosts;
    global.gather(global.myName(), hosts, Communicator::masterRank());
    response.set("pids", pids);
    response.set("hosts", hosts);
}

void machineInfo(const Properties&, Properties& response) {
    response.set("role", roleName());
    response.set("processes", Machine::nProcesses());
    response.set("partition", Machine::getPartitionId());
    response.set("machineConfig", TolmVersion::_machineConfig);
    response.set("version", TolmVersion::getVersionString());
    response.set("mpiDistribution", MpiCore::getDistribName());
    response.set("mpiVersion", MpiCore::getMpiVersionName());
    response.set("executable", Machine::getExecutableName());
    response.set("startTime", Machine::getStartTime());
    response.setChild("settings", settings());
    addProcesses(response);
}

}  // namespace

void registerSceneCommands(Controller& controller) {
    controller.registerCommand("Echo", echo);
    controller.registerCommand("MachineInfo", machineInfo);
    registerHostCommands(controller);
}

}  // namespace tolm
