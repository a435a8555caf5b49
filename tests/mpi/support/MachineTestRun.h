#pragma once
// The body of main() of the machine layer's MPI tests: starts the machine's communicators the
// way a server process does (the "-mpi" option chooses the driver), runs the tests on every rank
// with RankedResultPrinter, and returns 1 on every rank when a test failed on any rank.
#include <gtest/gtest.h>

#include <functional>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "support/RankedResultPrinter.h"

namespace tolm::mpitest {

// `beforeStart` runs before the communicators start, `afterStart` once they have.
inline int runMachineTests(int argc, char** argv, const std::function<void()>& beforeStart = {},
                           const std::function<void()>& afterStart = {}) {
    testing::InitGoogleTest(&argc, argv);
    if (beforeStart)
        beforeStart();
    Machine::ArgumentMap consumed;
    Machine::startCommunicators(argc, argv, consumed);
    if (afterStart)
        afterStart();
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new RankedResultPrinter(static_cast<int>(Machine::getPartitionId()),
                                             static_cast<int>(Machine::nProcesses())));

    int failedAnywhere = RUN_ALL_TESTS() != 0 ? 1 : 0;
    Machine::globalCommunicator()->allReduce(failedAnywhere, QMX_MPI_MAX);
    Machine::stopCommunicators();
    return failedAnywhere;
}

}  // namespace tolm::mpitest
