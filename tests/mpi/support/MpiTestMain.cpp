// main() of MPI test executables: loads the driver named by "-mpi", starts MPI, runs the tests
// on every rank with RankedResultPrinter, and exits with 1 on every rank when a test failed on
// any rank.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/MpiTestOptions.h"
#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"
#include "support/RankedResultPrinter.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    tolm::mpitest::takeDriverOption(argc, argv);
    tolm::mpitest::loadDriverOrExit();
    if (const int rc = QMX_MPI_Init(&argc, &argv)) {
        std::fprintf(stderr, "QMX_MPI_Init failed: %s\n", tolm::mpitest::qmxErrorText(rc).c_str());
        return 2;
    }
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new tolm::mpitest::RankedResultPrinter(tolm::mpitest::worldRank(),
                                                            tolm::mpitest::worldSize()));

    const int failedHere = RUN_ALL_TESTS() != 0 ? 1 : 0;
    int failedAnywhere = failedHere;
    QMX_MPI_Allreduce(&failedHere, &failedAnywhere, 1, QMX_MPI_INT, QMX_MPI_MAX,
                      QMX_MPI_COMM_WORLD);
    QMX_MPI_Finalize();
    return failedAnywhere;
}
