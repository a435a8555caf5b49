// The memory monitor in a serial run: its life cycle, the first-sample gate, recording and the
// history export; the alignment of histories; the machine option that enables it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "machine/core/Machine.h"
#include "machine/core/OptionError.h"
#include "machine/monitor/MemoryHistoryExport.h"
#include "machine/monitor/SamplingSchedule.h"
#include "machine/monitor/SystemMonitor.h"
#include "neo/Error.h"
#include "neo/SingletonCleaner.h"
#include "support/Argv.h"
#include "support/Failure.h"
#include "support/MonitorTesting.h"

namespace tolm {
namespace {

using Metric = SystemMonitor::MemoryMetric;
using test::allMetrics;
using test::awaitNewSample;
using test::fieldsOf;
using test::linesOf;
using test::MiB;
using test::touchedBlock;

class SystemMonitorTest : public ::testing::Test {
  protected:
    void TearDown() override {
        monitor.stop();
        std::remove(fileName.c_str());
    }
    SystemMonitor monitor;
    std::string fileName = "monitor-test-" + std::to_string(::getpid()) + ".csv";
};

TEST_F(SystemMonitorTest, StopBeforeStartDoesNothingAndASecondStartFails) {
    monitor.stop();
    EXPECT_FALSE(monitor.running());
    EXPECT_EQ(monitor.getProcessMemory(SystemMonitor::Resident), 0) << "no sample yet";

    monitor.start();
    EXPECT_TRUE(monitor.running());
    EXPECT_EQ(test::failureOf([&] { monitor.start(); }),
              "SystemMonitor is already running. | !running()");
    monitor.stop();
    EXPECT_FALSE(monitor.running());
    monitor.stop();

    monitor.start();  // the same thread object again
    EXPECT_GT(monitor.getProcessMemory(SystemMonitor::Virtual), 0) << "waits for a sample";
}

TEST_F(SystemMonitorTest, ResetPeakWaitsForASampleTakenAfterIt) {
    monitor.setYieldTime(2);
    monitor.start();
    const std::int64_t before = monitor.getProcessMemory(SystemMonitor::Resident);
    ASSERT_GT(before, 0) << "the first reader waits for the first sample";
    const auto block = touchedBlock(64 * MiB);

    monitor.resetPeak();
    const std::int64_t peak = monitor.getProcessPeakMemory(SystemMonitor::Resident);
    EXPECT_GE(peak, before + 63 * MiB) << "a sample from before the reset, or none";
    monitor.stop();
    for (const Metric metric : allMetrics) {
        EXPECT_GE(monitor.getProcessPeakMemory(metric), monitor.getProcessMemory(metric))
            << SystemMonitor::metricName(metric);
    }
}

TEST_F(SystemMonitorTest, SerialFiguresAreTheProcesssOwn) {
    monitor.start();
    monitor.getProcessMemory(SystemMonitor::Virtual);
    monitor.stop();  // the sample stands still from here on
    using Reading = std::int64_t (SystemMonitor::*)(Metric) const;
    const Reading current[] = {&SystemMonitor::getHostMemory,
                               &SystemMonitor::getGlobalAccumulatedMemory,
                               &SystemMonitor::getGlobalMaxProcessMemory,
                               &SystemMonitor::getGlobalMinProcessMemory,
                               &SystemMonitor::getGlobalMaxHostMemory,
                               &SystemMonitor::getGlobalMinHostMemory};
    const Reading peak[] = {&SystemMonitor::getHostPeakMemory,
                            &SystemMonitor::getGlobalAccumulatedPeakMemory,
                            &SystemMonitor::getGlobalMaxProcessPeakMemory,
                            &SystemMonitor::getGlobalMinProcessPeakMemory,
                            &SystemMonitor::getGlobalMaxHostPeakMemory,
                            &SystemMonitor::getGlobalMinHostPeakMemory};
    for (const Metric metric : allMetrics) {
        for (const Reading reading : current)
            EXPECT_EQ((monitor.*reading)(metric), monitor.getProcessMemory(metric));
        for (const Reading reading : peak)
            EXPECT_EQ((monitor.*reading)(metric), monitor.getProcessPeakMemory(metric));
    }
    EXPECT_GT(monitor.getProcessMemory(SystemMonitor::Lib), 0);
    EXPECT_GE(monitor.getProcessMemory(SystemMonitor::VirtualHwm),
              monitor.getProcessMemory(SystemMonitor::Virtual));
    EXPECT_EQ(monitor.getProcessMemory(SystemMonitor::AdjustedVirtual),
              monitor.getProcessMemory(SystemMonitor::Virtual))
        << "a serial process is the first of its host";
}

// The exported history has one line per sampling period and shows what was allocated while
// recording; sampling after the recording stopped adds nothing to it.
TEST_F(SystemMonitorTest, ExportWritesTheRecordedHistoryOnTheSamplingGrid) {
    monitor.setYieldTime(5);
    monitor.start();
    monitor.startRecording();
    awaitNewSample(monitor);
    const auto block = touchedBlock(32 * MiB);
    awaitNewSample(monitor);
    awaitNewSample(monitor);
    EXPECT_GT(monitor.getTime(), 0.0);
    monitor.stopRecording();
    const std::size_t recorded = monitor.historySize();
    awaitNewSample(monitor);
    EXPECT_EQ(monitor.historySize(), recorded) << "sampled after recording stopped";

    testing::internal::CaptureStdout();
    monitor.exportHistoryData(fileName);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Exporting memory history to file : " + fileName + "\n");
    const auto lines = linesOf(fileName);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual");
    const auto first = fieldsOf(lines[1]);
    const auto last = fieldsOf(lines.back());
    ASSERT_EQ(first.size(), 7u);
    ASSERT_EQ(last.size(), 7u);
    EXPECT_NEAR(fieldsOf(lines[2])[0] - first[0], 0.005, 1e-9) << "one line per period";
    EXPECT_GE(last[2] - first[2], 31.0 * MiB) << "the block shows in the resident column";
    EXPECT_EQ(last[6], last[1]) << "adjusted_virtual of a serial process";
}

TEST_F(SystemMonitorTest, ExportOfNothingWritesNoFileAndAFailedWriteIsReported) {
    testing::internal::CaptureStdout();
    monitor.exportHistoryData(fileName);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Empty sampling history...\n");
    EXPECT_FALSE(std::ifstream(fileName).good());

    monitor.start();
    monitor.startRecording();
    awaitNewSample(monitor);
    monitor.stopRecording();
    testing::internal::CaptureStdout();
    EXPECT_EQ(test::errorOf<Error>(
                  [&] { monitor.exportHistoryData("/nonexistent-directory/history.csv"); }),
              "Error detected writing memory monitor history file");
    testing::internal::GetCapturedStdout();
}

using Sample = SystemMonitor::Sample;

Sample sampleOf(std::int64_t value) {
    Sample sample;
    sample.fill(value);
    return sample;
}

// The first value of every line.
std::vector<std::int64_t> firstColumn(const std::vector<std::int64_t>& lines) {
    std::vector<std::int64_t> column;
    for (std::size_t at = 0; at < lines.size(); at += SystemMonitor::numberMetrics)
        column.push_back(lines[at]);
    return column;
}

TEST(MemoryHistoryExport, TheGridSpansTheJobsSamplesInWholePeriods) {
    EXPECT_EQ(MemoryHistoryExport::makeGrid(0.0, 0.05, 0.02).lines, 4u) << "the end is covered";
    EXPECT_EQ(MemoryHistoryExport::makeGrid(1.0, 1.04, 0.02).lines, 3u) << "no extra line";
    EXPECT_EQ(MemoryHistoryExport::makeGrid(2.0, 2.0, 0.02).lines, 1u);
    EXPECT_EQ(MemoryHistoryExport::makeGrid(0.0, 1.0, 0.0).step, 0.001) << "a zero yield time";
}

TEST(MemoryHistoryExport, AHistoryHoldsItsLatestSampleAtEachLine) {
    const auto grid = MemoryHistoryExport::makeGrid(0.0, 0.05, 0.02);  // 0 .02 .04 .06
    constexpr double none = std::numeric_limits<double>::max();
    double problem = none;
    const auto full = MemoryHistoryExport::resample(
        {0.0, 0.021, 0.039}, {sampleOf(10), sampleOf(20), sampleOf(30)}, grid, 1.0, problem);
    EXPECT_EQ(firstColumn(full), (std::vector<std::int64_t>{10, 10, 30, 30}));
    const auto late = MemoryHistoryExport::resample({0.03}, {sampleOf(7)}, grid, 1.0, problem);
    EXPECT_EQ(firstColumn(late), (std::vector<std::int64_t>{7, 7, 7, 7}))
        << "the first sample stands in before it";
    EXPECT_EQ(problem, none);

    MemoryHistoryExport::resample({0.0, 0.021, 0.039}, {sampleOf(10), sampleOf(20), sampleOf(30)},
                                  grid, 0.015, problem);
    EXPECT_DOUBLE_EQ(problem, 0.02) << "0.02 takes the sample of 0.0";
    problem = none;
    const auto empty = MemoryHistoryExport::resample({}, {}, grid, 1.0, problem);
    EXPECT_EQ(firstColumn(empty), (std::vector<std::int64_t>{0, 0, 0, 0}));
    EXPECT_EQ(problem, 0.0) << "a process without samples is reported at the start";
}

TEST(SamplingSchedule, KeepsItsPeriodHoweverLateItWakesAndStartsAfreshAfterAStall) {
    using namespace std::chrono_literals;
    const SamplingSchedule::Clock::time_point start = SamplingSchedule::Clock::now();
    constexpr auto period = 20ms;
    struct Turn {
        std::chrono::microseconds wake;  // after `start`
        bool due;
        std::chrono::milliseconds nextDue;  // after `start`
    };
    const Turn turns[] = {{0us, true, 20ms},       // the first turn samples at once
                          {23000us, true, 40ms},   // 3 ms late: the next keeps to the period
                          {39000us, false, 40ms},  // early: nothing
                          {40500us, true, 60ms},
                          {125000us, true, 145ms},  // a stall: a new schedule from now
                          {145100us, true, 165ms}};
    SamplingSchedule schedule;
    for (const Turn& turn : turns) {
        EXPECT_EQ(schedule.takeDue(start + turn.wake, period), turn.due) << turn.wake.count();
        EXPECT_EQ(schedule.nextDue(period), start + turn.nextDue) << turn.wake.count();
    }
}

class MachineSystemMonitor : public ::testing::Test {
  protected:
    void SetUp() override { Machine::reset(); }
    void TearDown() override {
        Machine::reset();
        SingletonCleaner::reset();
    }
};

// Periods are whole milliseconds; zero, negative or tiny periods mean the default or 1 ms.
TEST_F(MachineSystemMonitor, TheOptionEnablesItWithItsSamplingPeriodInSeconds) {
    EXPECT_EQ(test::failureOf([] { Machine::getSystemMonitor(); }),
              "The system monitor has not been enabled | hasSystemMonitor()");
    const std::pair<const char*, unsigned> accepted[] = {
        {"0.005", 5u}, {"0.25", 250u}, {"0.0004", 1u}, {"0", 20u}, {"-1", 20u}, {"1e-2", 10u}};
    for (const auto& [value, milliseconds] : accepted) {
        const auto consumed = test::parseCommonOptions({"server", "-s", "-memorymonitor", value});
        EXPECT_EQ(Machine::getSystemMonitor().getYieldTime(), milliseconds) << value;
        EXPECT_EQ(consumed.at("-memorymonitor"), 2u);
        EXPECT_FALSE(Machine::getSystemMonitor().running()) << "the machine's start starts it";
    }
    for (const char* value : {"abc", "0.02s", "", "nan", "1e99"}) {
        EXPECT_EQ(test::errorOf<OptionError>([&] {
                      test::parseCommonOptions({"server", "-s", "-memorymonitor", value});
                  }),
                  std::string("-memorymonitor argument must be a number of seconds, not '") +
                      value + "'");
    }
    Machine::enableSystemMonitor(true, std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(Machine::getSystemMonitor().getYieldTime(), 20u);
    Machine::enableSystemMonitor(false, 0.0f);
    EXPECT_FALSE(Machine::hasSystemMonitor());
}

TEST_F(MachineSystemMonitor, TheEndOfTheRunStopsTheSamplingThread) {
    Machine::enableSystemMonitor(true, 0.001f);
    SystemMonitor& monitor = Machine::getSystemMonitor();
    monitor.start();
    Machine::getSingleton().getOnExitObservable().notify();
    EXPECT_FALSE(monitor.running());
}

}  // namespace
}  // namespace tolm
