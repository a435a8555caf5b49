#pragma once
#include <memory>

#include "neo/Properties.h"
#include "neo/Subject.h"

namespace tolm {

// Runs every command on every process of a parallel job. On the master it hooks the core
// controller's scatter observable, so that each command the master executes is broadcast to
// the slaves; a slave sits in `processCommands`, executing what arrives, until the master
// sends "ExitCommandLoop". A serial process runs the core controller's loop alone.
class CommandController {
  public:
    static constexpr const char* EXIT_COMMAND_LOOP = "ExitCommandLoop";

    static CommandController& getSingleton();
    static void reset();
    ~CommandController();

    // Serial or master: the core controller's listen/execute loop, then (master) the command
    // that releases the slaves. Slave: the receive/execute loop.
    void processCommands();
    // Master: sends "ExitCommandLoop" to the slaves, once; later calls do nothing.
    void releaseSlaves();

  private:
    CommandController();
    void scatterCommand(Properties& command) const;
    void slaveCommandLoop();

    std::unique_ptr<TypedObserver<Properties&>> _scatterObserver;
    bool _slavesReleased = false;
};

}  // namespace tolm
