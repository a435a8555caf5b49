#include "machine/commands/CommandController.h"

#include "machine/comm/Communicator.h"
#include "machine/commands/GlobalFloatingPointExceptionStatus.h"
#include "machine/core/Machine.h"
#include "machine/core/ParallelErrorHandler.h"
#include "machine/core/RollCall.h"
#include "neo/Command.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "neo/EventTracker.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

std::unique_ptr<CommandController>& singletonSlot() {
    static std::unique_ptr<CommandController> controller;
    return controller;
}

using ResponseObserver = FunctionObserver<Properties&>;

void assertSerialOrMaster(const char* message) {
    TOLM_ASSERT(Machine::isSerial() || Machine::isMaster(), message);
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

CommandController::CommandController() : _spinWait(false, GlobalCondition::ON_ALL_INVARIANT) {
    if (Machine::isParallel()) {
        _agreement = Machine::globalCommunicator()->duplicate();
        RollCall::nameCommunicator(_agreement->handle(), "machine's private communicator");
    }
    Controller& controller = Controller::getSingleton();
    if (!controller.hasCommand(EXIT_COMMAND_LOOP)) {
        // On the master the command only travels to the slaves; executing it does nothing.
        controller.registerCommand(EXIT_COMMAND_LOOP, [](const Properties&, Properties&) {});
    }
    attachObservers();
}

void CommandController::attachObservers() {
    Controller& controller = Controller::getSingleton();
    if (Machine::isMaster()) {
        _scatterObserver = std::make_unique<ResponseObserver>([this](Properties& command) {
            TOLM_ASSERT(Machine::isMaster(),
                        "Only the master can observe the Scatter/Gather Command Observable");
            scatterCommand(command);
            setMasterState(Machine::Processing);
        });
        _gatherObserver = std::make_unique<ResponseObserver>([this](Properties& response) {
            TOLM_ASSERT(Machine::isMaster(),
                        "Only the master can observe the Scatter/Gather Command Observable");
            // Slaves leave their loop on "ExitCommandLoop" without answering it.
            if (!_slavesLeftLoop) {
                setMasterState(Machine::GatheringResponse);
                gatherResponse(response);
            }
            setMasterState(Machine::AwaitingCommand);
        });
        controller.getMasterScatterCommandObservable().attach(*_scatterObserver);
        controller.getMasterGatherResponseObservable().attach(*_gatherObserver);
    } else if (Machine::isSerial()) {
        _postExecuteObserver = std::make_unique<ResponseObserver>([this](Properties& response) {
            TOLM_ASSERT(Machine::isSerial(),
                        "Only serial should update the PostExecuteFloatingPointErrorObservable");
            postExecuteFloatingPointErrorCheck(response);
        });
        controller.getPostExecuteFloatingPointErrorObservable().attach(*_postExecuteObserver);
    }
}

CommandController::~CommandController() {
    Controller& controller = Controller::getSingleton();
    if (_scatterObserver)
        controller.getMasterScatterCommandObservable().detach(*_scatterObserver);
    if (_gatherObserver)
        controller.getMasterGatherResponseObservable().detach(*_gatherObserver);
    if (_postExecuteObserver) {
        controller.getPostExecuteFloatingPointErrorObservable().detach(*_postExecuteObserver);
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
    endSlaveLoop();
}

void CommandController::endSlaveLoop() {
    Controller::getSingleton().execute(Command::make(EXIT_COMMAND_LOOP));
}

void CommandController::processQueuedCommands() {
    Controller& controller = Controller::getSingleton();
    if (!GlobalCondition(controller.hasQueuedCommands(), GlobalCondition::ON_MASTER))
        return;
    GlobalFloatingPointExceptionStatus::AssertNoException(AssertNoFpeAccessKey(), agreement());
    if (!(Machine::isSerial() || Machine::isMaster())) {
        slaveCommandLoop();
        return;
    }
    assertSerialOrMaster("Only Serial or Controller can enter SerialMasterCommandLoop");
    controller.processQueuedCommands();
    if (Machine::isMaster())
        endSlaveLoop();
}

bool CommandController::masterExecuteCommand(const Properties& command, Properties& response) {
    assertSerialOrMaster(
        "Only Serial or Controller process can execute Commands outside of listen/execute loop");
    return Controller::getSingleton().executeCommand(command, response);
}

void CommandController::masterExecuteRestoreState(const std::wstring& filename) {
    Properties command = Command::make("RestoreState");
    command.set("filename", StringHelper::toString(filename));
    assertSerialOrMaster(
        "Only Serial or Controller process can execute Commands outside of listen/execute loop");
    Properties response;
    if (!Controller::getSingleton().executeCommand(command, response)) {
        throw NonRecoverableError("Simulation file could not be loaded: " +
                                  Error::getMessage(response));
    }
}

void CommandController::scatterCommand(Properties& command) const {
    const EventTracker::Track track("CommandController", "scatterCommand");
    Communicator& machine = *agreement();
    std::string text = Machine::isMaster() ? command.toString() : std::string();
    // Idle slaves wait here between commands: asleep after a second, not spinning.
    if (!_spinWait)
        machine.noSpinSynchronise(1.0);
    unsigned int length = MessageLimits::toUnsigned(text.size());
    machine.broadcast(length, Communicator::masterRank());
    text.resize(length);
    machine.broadcast(text.data(), length, Communicator::masterRank());
    if (!Machine::isMaster())
        command = Properties(text);
    const std::string name = Command::getCommandName(command);
    RollCall::setCommand(name);
    _slavesLeftLoop = name == EXIT_COMMAND_LOOP;
}

bool CommandController::gatherResponse(Properties& response) const {
    const EventTracker::Track track("CommandController", "gatherResponse");
    if (Error::isErrorIn(response))
        RollCall::holdError(Error::getMessage(response));
    if (ParallelErrorHandler* handler = Machine::getSingleton().getParallelErrorHandler()) {
        handler->raisePending();  // a worker thread's error ends the job from here
    }
    GlobalFloatingPointExceptionStatus::AssertNoException(AssertNoFpeAccessKey(), agreement());
    parseErrorProperties(response);
    return true;
}

void CommandController::parseErrorProperties(Properties& response) const {
    const std::string mine = Error::isErrorIn(response) ? response.toString() : std::string();
    std::vector<std::string> texts;
    agreement()->gather(mine, texts, Communicator::masterRank());
    for (unsigned int rank = 0; rank < texts.size(); ++rank) {
        if (texts[rank].empty())
            continue;
        const Properties failed(texts[rank]);
        if (!Error::isErrorIn(failed))
            continue;
        for (const char* tag : {Error::ERROR_TAG, Error::MESSAGE_TAG, Error::SEVERITY_TAG}) {
            response.remove(tag);
            if (failed.has(tag))
                response.value()[tag] = failed.value()[tag];
        }
        if (rank != 0)
            response.set(RANK_TAG, rank);
        return;
    }
}

void CommandController::setMasterState(Machine::NodeState state) const {
    if (Machine::isMaster())
        Machine::getSingleton().setState(state);
}

void CommandController::postExecuteFloatingPointErrorCheck(Properties&) const {
    GlobalFloatingPointExceptionStatus::AssertNoException(AssertNoFpeAccessKey());
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
        machine.setState(Machine::GatheringResponse);
        try {
            gatherResponse(response);
        } catch (const NonRecoverableError&) {
            throw;
        } catch (const Error&) {
            // Raised on every process alike; the master reports it.
        }
        machine.setState(Machine::AwaitingCommand);
    }
}

}  // namespace tolm
