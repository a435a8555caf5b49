#include "machine/CommandController.h"

#include "machine/Communicator.h"
#include "machine/Machine.h"
#include "neo/Command.h"
#include "neo/Controller.h"
#include "neo/EventTracker.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

std::unique_ptr<CommandController>& singletonSlot() {
    static std::unique_ptr<CommandController> controller;
    return controller;
}

}  // namespace

CommandController& CommandController::getSingleton() {
    auto& slot = singletonSlot();
    if (!slot)
        slot.reset(new CommandController());
    return *slot;
}

void CommandController::reset() {
    singletonSlot().reset();
}

CommandController::CommandController() {
    Controller& controller = Controller::getSingleton();
    if (!controller.hasCommand(EXIT_COMMAND_LOOP)) {
        // On the master the command only travels to the slaves; executing it does nothing.
        controller.registerCommand(EXIT_COMMAND_LOOP, [](const Properties&, Properties&) {});
    }
    if (Machine::isMaster()) {
        _scatterObserver = std::make_unique<FunctionObserver<Properties&>>(
            [this](Properties& command) { scatterCommand(command); });
        controller.getMasterScatterCommandObservable().attach(*_scatterObserver);
    }
}

CommandController::~CommandController() {
    if (_scatterObserver) {
        Controller::getSingleton().getMasterScatterCommandObservable().detach(*_scatterObserver);
    }
}

void CommandController::processCommands() {
    if (!(Machine::isSerial() || Machine::isMaster())) {
        slaveCommandLoop();
        return;
    }
    Controller::getSingleton().processCommands();
    releaseSlaves();
}

void CommandController::releaseSlaves() {
    if (!Machine::isMaster() || _slavesReleased)
        return;
    _slavesReleased = true;
    Controller::getSingleton().execute(Command::make(EXIT_COMMAND_LOOP));
}

void CommandController::scatterCommand(Properties& command) const {
    const EventTracker::Track track("CommandController", "scatterCommand");
    Communicator& global = *Machine::globalCommunicator();
    std::string text = Machine::isMaster() ? command.toString() : std::string();
    unsigned int length = MessageLimits::toUnsigned(text.size());
    global.broadcast(length, Communicator::masterRank());
    text.resize(length);
    global.broadcast(text.data(), length, Communicator::masterRank());
    command = Properties(text);
}

void CommandController::slaveCommandLoop() {
    TOLM_ASSERT(!(Machine::isSerial() || Machine::isMaster()),
                "Only Worker can enter WorkerCommandLoop");
    Machine& machine = Machine::getSingleton();
    Controller& controller = Controller::getSingleton();
    for (;;) {
        Properties command;
        Properties response;
        machine.setState(Machine::AwaitingCommand);
        scatterCommand(command);
        if (Command::getCommandName(command) == EXIT_COMMAND_LOOP)
            break;
        machine.setState(Machine::Processing);
        controller.executeCommand(command, response);
        machine.setState(Machine::AwaitingCommand);
    }
}

}  // namespace tolm
