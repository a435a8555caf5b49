#include <gtest/gtest.h>

#include <cmath>

#include "CommunicatorTesting.h"
#include "machine/monitor/MpiWallTimer.h"
#include "machine/monitor/Timer.h"
#include "support/WallTimerContract.h"

namespace tolm {
namespace {

using mpitest::world;

double rank() {
    return double(world().myRank());
}
double processes() {
    return double(world().size());
}
bool isMaster() {
    return world().myRank() == Communicator::masterRank();
}

// Population (not sample) standard deviation of a, a + step, ..., over n values.
double spreadOfSteps(double step, double n) {
    return step * std::sqrt((n * n - 1.0) / 12.0);
}

TEST(TimerStatistics, AcrossTheGlobalCommunicator) {
    Timer timer;  // the global communicator by default
    const double wall = 1.0 + 2.0 * rank();
    const double cpu = 10.0 + rank();
    timer.setTimes(cpu, wall);
    const double n = processes();

    EXPECT_EQ(timer.getMaximumWallTime(), 2.0 * n - 1.0);
    EXPECT_EQ(timer.getMinimumWallTime(), 1.0);
    EXPECT_EQ(timer.getAverageWallTime(), n);
    EXPECT_EQ(timer.getMaximumCpuTime(), 9.0 + n);
    EXPECT_EQ(timer.getMinimumCpuTime(), 10.0);
    EXPECT_EQ(timer.getAccumulatedCpuTime(), 10.0 * n + n * (n - 1.0) / 2.0);
    EXPECT_EQ(timer.getAverageCpuTime(), 10.0 + (n - 1.0) / 2.0);
    // Only the master gathers the values; everyone else reports 0.
    const double wallSpread = timer.getStandardDeviationWallTime();
    const double cpuSpread = timer.getStandardDeviationCpuTime();
    EXPECT_NEAR(wallSpread, isMaster() ? spreadOfSteps(2.0, n) : 0.0, 1e-12);
    EXPECT_NEAR(cpuSpread, isMaster() ? spreadOfSteps(1.0, n) : 0.0, 1e-12);
}

TEST(TimerStatistics, OverASubCommunicatorAverageByTheJobsProcessCount) {
    if (world().size() == 1)
        GTEST_SKIP() << "needs two ranks";
    auto pair = world().createCommunicator({1, 0});  // rank 1 becomes the pair's master
    if (!pair)
        return;
    Timer timer(pair.get());
    timer.setTimes(0.0, world().myRank() == 1 ? 1.0 : 3.0);
    EXPECT_EQ(timer.getMaximumWallTime(), 3.0);
    EXPECT_EQ(timer.getMinimumWallTime(), 1.0);
    EXPECT_EQ(timer.getAverageWallTime(), 4.0 / processes());
    EXPECT_EQ(timer.getStandardDeviationWallTime(), pair->myRank() == 0 ? 1.0 : 0.0);
}

TEST(TimerStatistics, ARunningTimerContributesItsRunningTotal) {
    Timer timer;
    timer.start();
    timer.setTimes(100.0, 100.0);
    EXPECT_GE(timer.getMinimumWallTime(), 100.0);
    EXPECT_GE(timer.getMinimumCpuTime(), 100.0);
    EXPECT_GT(timer.getMaximumWallTime(), 100.0);
    timer.stop();
}

TEST(MpiWallTimer, RestartsStopsAndCopiesOnMpisClock) {
    MpiCore::MpiWallTimer clock;
    EXPECT_EQ(clock.resolution(), QMX_MPI_Wtick());
    test::expectWallTimerContract(clock, [] { return QMX_MPI_Wtime(); });
}

}  // namespace
}  // namespace tolm
