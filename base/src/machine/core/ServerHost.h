#pragma once
#include "machine/core/ExitStatus.h"
#include "machine/core/Machine.h"

namespace tolm {

// The server's own main loop, run by the serial process or the master once the machine has
// started. The server sets it with Machine::setServerHost before calling Machine::main.
class ServerHost {
  public:
    virtual ~ServerHost() = default;
    // Runs the server until it ends; `consumed` lists the options the machine layer took.
    virtual ExitStatus run(int argc, char** argv, const Machine::ArgumentMap& consumed) = 0;
};

}  // namespace tolm
