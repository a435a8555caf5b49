#pragma once
#include <memory>
#include <string>

#include "machine/comm/Communicator.h"
#include "machine/commands/GlobalCondition.h"
#include "machine/core/Machine.h"
#include "neo/Properties.h"
#include "neo/Subject.h"

namespace tolm {

// Runs every command on every process of a parallel job and reports one answer.
//
// The master hooks the core controller: before a command runs, the scatter observer sends it
// to the slaves; after it ran, the gather observer checks the floating-point status of all
// processes and merges the slaves' errors into the master's response (the lowest failing
// rank wins, named under "Rank" unless it is the master). A slave sits in `processCommands`,
// running what arrives, until the master sends "ExitCommandLoop". A serial process checks
// its floating-point status after each command.
//
// Commands travel, and the checks after each command run, on a private duplicate of the
// global communicator, so that they never match a collective of a command's own code: a rank
// whose command failed before a collective the others entered waits in the check, where the
// roll-call (RollCall) finds it, instead of pairing up with the others' collective.
class CommandController {
public:
    static constexpr const char* EXIT_COMMAND_LOOP = "ExitCommandLoop";
    static constexpr const char* RANK_TAG = "Rank";

    static CommandController& getSingleton();
    static void reset();
    ~CommandController();

    // Serial or master: the core controller's listen/execute loop, then (master) the command
    // that ends the slaves' loop. Slave: the receive/execute loop.
    void processCommands();
    // Master: ends the slaves' loop unless processCommands already did.
    void releaseSlaves();
    // Collective: runs the master's queued commands on every process, if it has any.
    void processQueuedCommands();

    bool masterExecuteCommand(const Properties& command, Properties& response);
    void masterExecuteRestoreState(const std::wstring& filename);

    void setSpinWait(const GlobalCondition& spinWait) { _spinWait = spinWait; }
    bool getSpinWait() const { return _spinWait; }

private:
    CommandController();
    void scatterCommand(Properties& command) const;
    bool gatherResponse(Properties& response) const;
    void parseErrorProperties(Properties& response) const;
    void postExecuteFloatingPointErrorCheck(Properties& response) const;
    void slaveCommandLoop();
    void endSlaveLoop();
    void attachObservers();

    // The communicator of the machine's own traffic around commands; null in a serial run.
    Communicator* agreement() const { return _agreement.get(); }
    void setMasterState(Machine::NodeState state) const;

    std::unique_ptr<Communicator> _agreement;
    GlobalCondition _spinWait;
    std::unique_ptr<TypedObserver<Properties&>> _scatterObserver;
    std::unique_ptr<TypedObserver<Properties&>> _gatherObserver;
    std::unique_ptr<TypedObserver<Properties&>> _postExecuteObserver;
    bool _slavesReleased = false;
    mutable bool _slavesLeftLoop = false;
};

}  // namespace tolm
