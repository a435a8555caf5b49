#include "scene/FaultCommands.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "neo/CheckedField.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "neo/NonRecoverableError.h"

namespace tolm {
namespace {

std::uint32_t lastRank() {
    return Machine::nProcesses() - 1;
}

bool isChosen(const Properties& command) {
    if (!command.has("ranks"))
        return true;
    const auto ranks = CheckedField::integerList(command, "ranks", 0u, lastRank());
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
    if (CheckedField::integer(command, "rank", 0u, lastRank(), 0u) != Machine::getPartitionId())
        return;
    volatile double zero = 0.0;
    volatile double quotient = 1.0 / zero;
    response.set("quotient", double(quotient));
}

void sleep(const Properties& command, Properties&) {
    if (!isChosen(command))
        return;  // "ranks" chooses the sleepers as it chooses failures
    const double seconds = CheckedField::number(command, "seconds", 0.0, 3600.0, 0.0);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace

void registerFaultCommands(Controller& controller) {
    controller.registerCommand("Fail", fail);
    controller.registerCommand("RaiseFloatingPointError", raiseFloatingPointError);
    controller.registerCommand("Sleep", sleep);
}

}  // namespace tolm
