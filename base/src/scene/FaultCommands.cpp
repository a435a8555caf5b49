#include "scene/FaultCommands.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "neo/NonRecoverableError.h"

namespace tolm {
namespace {

bool isChosen(const Properties& command) {
    if (!command.has("ranks"))
        return true;
    const auto ranks = command.get<std::vector<unsigned int>>("ranks");
    return std::find(ranks.begin(), ranks.end(), Machine::getPartitionId()) != ranks.end();
}

void fail(const Properties& command, Properties&) {
    const bool beforeCollective = command.get<bool>("beforeCollective", false);
    if (!isChosen(command)) {
        if (beforeCollective && Machine::isParallel()) {
            int count = 1;  // a collective the chosen ranks never enter
            Machine::globalCommunicator()->allReduce(count, QMX_MPI_SUM);
        }
        return;
    }
    const std::string message =
        "Command failed on rank " + std::to_string(Machine::getPartitionId());
    if (command.get<bool>("nonRecoverable", false))
        throw NonRecoverableError(message);
    throw Error(message, 1);
}

void raiseFloatingPointError(const Properties& command, Properties& response) {
    if (command.get<unsigned int>("rank", 0) != Machine::getPartitionId())
        return;
    volatile double zero = 0.0;
    volatile double quotient = 1.0 / zero;
    response.set("quotient", double(quotient));
}

void sleep(const Properties& command, Properties&) {
    if (!isChosen(command))
        return;  // "ranks" chooses the sleepers as it chooses failures
    const double seconds = command.get<double>("seconds", 0.0);
    if (seconds < 0.0 || seconds > 3600.0)
        throw Error("\"seconds\" must lie in 0..3600", 1);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace

void registerFaultCommands(Controller& controller) {
    controller.registerCommand("Fail", fail);
    controller.registerCommand("RaiseFloatingPointError", raiseFloatingPointError);
    controller.registerCommand("Sleep", sleep);
}

}  // namespace tolm
