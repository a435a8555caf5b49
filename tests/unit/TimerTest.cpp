// Timers in a serial run: no MPI, so the MPI wall clock type must fall back to the system's.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "machine/core/Machine.h"
#include "machine/monitor/Timer.h"
#include "machine/monitor/WallTimer.h"
#include "platform/Platform.h"
#include "platform/TimeService.h"
#include "support/WallTimerContract.h"

namespace tolm {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Keeps this process on the processor for `seconds` of CPU time.
void burnCpu(double seconds) {
    const double start = Platform::time().processCpuSeconds();
    volatile double sink = 0.0;
    while (Platform::time().processCpuSeconds() - start < seconds)
        sink = sink + 1.0;
}

void sleepFor(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST(Timer, IntervalsAccumulateInBothClocks) {
    ASSERT_TRUE(Machine::isSerial());
    Timer timer;  // the MPI type: the system clock in a serial run
    const auto outer = Clock::now();
    timer.start();
    EXPECT_TRUE(timer.running());
    burnCpu(0.02);
    timer.stop();
    const double busyWall = timer.getWallTime();
    const double busyCpu = timer.getCpuTime();
    EXPECT_GE(busyCpu, 0.02);
    EXPECT_GE(busyWall, 0.02);
    EXPECT_LE(busyWall, secondsSince(outer));

    timer.start();
    sleepFor(30);
    timer.stop();
    EXPECT_GE(timer.getWallTime() - busyWall, 0.03);
    EXPECT_LT(timer.getCpuTime() - busyCpu, 0.03) << "sleeping takes no processor";

    const double wall = timer.getWallTime();
    const double cpu = timer.getCpuTime();
    burnCpu(0.005);
    timer.stop();
    timer.stopCpuTimer();
    timer.stopWallTimer();
    EXPECT_EQ(timer.getWallTime(), wall) << "a second stop adds nothing";
    EXPECT_EQ(timer.getCpuTime(), cpu);
}

TEST(Timer, SetTimesReplacesWhatAccumulated) {
    Timer timer;
    timer.start();
    sleepFor(5);
    timer.stop();
    timer.setTimes(3.0, 5.0);
    EXPECT_EQ(timer.getCpuTime(), 3.0);
    EXPECT_EQ(timer.getWallTime(), 5.0);

    const auto outer = Clock::now();
    timer.start();
    timer.setTimes(3.0, 5.0);
    burnCpu(0.005);
    EXPECT_GE(timer.getCpuTime(), 3.005) << "the running interval adds on top";
    const double wall = timer.getWallTime();
    EXPECT_GT(wall, 5.0);
    EXPECT_LE(wall - 5.0, secondsSince(outer));
}

// Running means both clocks; each clock starts and resets on its own.
TEST(Timer, ClocksStartAndResetOnTheirOwn) {
    Timer timer;
    timer.startWallTimer();
    EXPECT_FALSE(timer.cpuTimerRunning());
    EXPECT_FALSE(timer.running()) << "running means both clocks";
    timer.startCpuTimer();
    EXPECT_TRUE(timer.running());

    timer.setTimes(2.0, 4.0);
    timer.resetCpuTimer();
    EXPECT_EQ(timer.getCpuTime(), 0.0);
    EXPECT_TRUE(timer.wallTimerRunning());
    EXPECT_GE(timer.getWallTime(), 4.0);
    timer.resetWallTimer();
    EXPECT_FALSE(timer.wallTimerRunning());
    EXPECT_EQ(timer.getWallTime(), 0.0);

    timer.start();
    timer.setTimes(2.0, 4.0);
    timer.reset();
    EXPECT_FALSE(timer.cpuTimerRunning() || timer.wallTimerRunning());
    EXPECT_EQ(timer.getCpuTime() + timer.getWallTime(), 0.0);
}

TEST(Timer, CopiesCarryOnIndependently) {
    Timer original;
    original.start();
    original.setTimes(1.0, 2.0);
    Timer copy(original);
    EXPECT_TRUE(copy.running());
    EXPECT_GE(copy.getWallTime(), 2.0);
    copy.stop();
    EXPECT_TRUE(original.running()) << "the copy has a wall clock of its own";

    Timer assigned(Timer::WALL_TIMER_SYSTEM, nullptr);
    assigned = copy;
    EXPECT_FALSE(assigned.running());
    EXPECT_EQ(assigned.getWallTime(), copy.getWallTime());
    const Timer& itself = assigned;
    assigned = itself;
    EXPECT_EQ(assigned.getCpuTime(), copy.getCpuTime());
    original.stop();
}

TEST(Timer, SerialStatisticsDescribeThisProcess) {
    Timer timer;
    timer.setTimes(2.0, 4.0);
    using Statistic = double (Timer::*)() const;
    for (const Statistic wall :
         {&Timer::getMaximumWallTime, &Timer::getMinimumWallTime, &Timer::getAverageWallTime})
        EXPECT_EQ((timer.*wall)(), 4.0);
    for (const Statistic cpu : {&Timer::getMaximumCpuTime, &Timer::getMinimumCpuTime,
                                &Timer::getAccumulatedCpuTime, &Timer::getAverageCpuTime})
        EXPECT_EQ((timer.*cpu)(), 2.0);
    EXPECT_EQ(timer.getStandardDeviationWallTime(), 0.0);
    EXPECT_EQ(timer.getStandardDeviationCpuTime(), 0.0);
}

TEST(Timer, AnUnsupportedTypeRevertsToTheSystemClock) {
    testing::internal::CaptureStdout();
    Timer timer(static_cast<Timer::WallTimerType>(2), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Unsupported wall timer type.. reverting to system wall timer.\n");
    timer.start();
    sleepFor(5);
    timer.stop();
    EXPECT_GE(timer.getWallTime(), 0.005);
}

TEST(SystemWallTimer, RestartsAndRefusesToStopOrReadWhenStopped) {
    SystemWallTimer clock;
    test::expectWallTimerContract(clock, [] { return Platform::time().wallSeconds(); });
}

}  // namespace
}  // namespace tolm
