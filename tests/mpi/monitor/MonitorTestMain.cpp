// main() of the memory monitor's MPI tests: starts the machine's communicators and host map as
// a server process does, runs the tests on every rank with RankedResultPrinter and exits with
// 1 on every rank when a test failed on any rank.
#include <gtest/gtest.h>

#include "machine/Communicator.h"
#include "machine/Machine.h"
#include "support/RankedResultPrinter.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    tolm::Machine::ArgumentMap consumed;
    tolm::Machine::startCommunicators(argc, argv, consumed);
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(
        new tolm::mpitest::RankedResultPrinter(static_cast<int>(tolm::Machine::getPartitionId()),
                                               static_cast<int>(tolm::Machine::nProcesses())));

    const int failedHere = RUN_ALL_TESTS() != 0 ? 1 : 0;
    int failedAnywhere = failedHere;
    tolm::Machine::globalCommunicator()->allReduce(failedAnywhere, QMX_MPI_MAX);
    tolm::Machine::stopCommunicators();
    return failedAnywhere;
}
