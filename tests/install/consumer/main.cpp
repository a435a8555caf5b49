// A server of its own on the installed machine layer. It reads commands from standard input:
// "Echo" comes from the scene module the machine loads from the install; "RankSum" is its own
// and all-reduces every process's rank + 1 through Communicator's typed (template) front-end,
// compiled here with the consumer's flags.
#include <iostream>
#include <memory>

#include <tolm/machine/comm/Communicator.h>
#include <tolm/machine/commands/CommandController.h>
#include <tolm/machine/core/Machine.h>
#include <tolm/machine/core/ServerHost.h>
#include <tolm/neo/Controller.h>

namespace {

class ConsumerServer : public tolm::ServerHost {
  public:
    tolm::ExitStatus run(int, char**, const tolm::Machine::ArgumentMap&) override {
        tolm::Controller::getSingleton().setCommandStreams(std::cin, std::cout);
        tolm::CommandController::getSingleton().processCommands();
        return {};
    }
};

void rankSum(const tolm::Properties&, tolm::Properties& response) {
    int value = static_cast<int>(tolm::Machine::getPartitionId()) + 1;
    if (tolm::Machine::isParallel())
        tolm::Machine::globalCommunicator()->allReduce(value, QMX_MPI_SUM);
    response.set("sum", value);
}

}  // namespace

int main(int argc, char** argv) {
    tolm::Controller::getSingleton().registerCommand("RankSum", rankSum);
    tolm::Machine::setServerHost(std::make_unique<ConsumerServer>());
    return int(tolm::Machine::main(argc, argv));
}
