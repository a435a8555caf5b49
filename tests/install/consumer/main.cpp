// Runs a serial machine whose server answers one "Echo" command from standard input.
#include <iostream>
#include <memory>

#include "machine/commands/CommandController.h"
#include "machine/core/Machine.h"
#include "machine/core/ServerHost.h"
#include "neo/Controller.h"

namespace {

class EchoServer : public tolm::ServerHost {
public:
    tolm::ExitStatus run(int, char**, const tolm::Machine::ArgumentMap&) override {
        tolm::Controller::getSingleton().setCommandStreams(std::cin, std::cout);
        tolm::CommandController::getSingleton().processCommands();
        return {};
    }
};

}  // namespace

int main(int argc, char** argv) {
    tolm::Machine::setServerHost(std::make_unique<EchoServer>());
    return int(tolm::Machine::main(argc, argv));
}
