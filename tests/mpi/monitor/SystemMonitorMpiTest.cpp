// The memory monitor on every rank of a job: host sums, job figures and the history export,
// with rank-dependent allocations, on one host or on two simulated ones.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "hostmap/HostMapTesting.h"
#include "machine/monitor/SystemMonitor.h"
#include "machine/topology/MachineHost.h"
#include "support/MonitorTesting.h"

namespace tolm {
namespace {

using namespace hostmaptest;
using Metric = SystemMonitor::MemoryMetric;
using Values = std::vector<std::int64_t>;
using test::allMetrics;
using test::awaitNewSample;
using test::MiB;
using test::touchedBlock;

std::int64_t allocationOf(unsigned rank) {
    return std::int64_t(rank + 1) * 8 * MiB;
}

Values everyRanks(std::int64_t mine) {
    Values all;
    world().allGather(mine, all);
    return all;
}

std::int64_t hostSumOf(const Values& byRank, unsigned rank) {
    std::int64_t sum = 0;
    for (const unsigned other : expectedRanksOnHostOf(rank))
        sum += byRank[other];
    return sum;
}

// Checks every host and job figure of one metric against the ranks' own values.
void expectFiguresAgree(const Values& byRank, std::int64_t host, std::int64_t sum, std::int64_t max,
                        std::int64_t min, std::int64_t maxHost, std::int64_t minHost,
                        const char* what) {
    Values hostSums;
    for (unsigned rank = 0; rank < byRank.size(); ++rank)
        hostSums.push_back(hostSumOf(byRank, rank));
    EXPECT_EQ(host, hostSumOf(byRank, myRank())) << what;
    EXPECT_EQ(sum, std::accumulate(byRank.begin(), byRank.end(), std::int64_t(0))) << what;
    EXPECT_EQ(max, *std::max_element(byRank.begin(), byRank.end())) << what;
    EXPECT_EQ(min, *std::min_element(byRank.begin(), byRank.end())) << what;
    EXPECT_EQ(maxHost, *std::max_element(hostSums.begin(), hostSums.end())) << what;
    EXPECT_EQ(minHost, *std::min_element(hostSums.begin(), hostSums.end())) << what;
}

TEST(SystemMonitor, HostAndJobFiguresAddUpTheRanksAllocations) {
    SystemMonitor monitor;
    monitor.setYieldTime(2);
    monitor.start();
    const std::int64_t before = monitor.getProcessMemory(SystemMonitor::Resident);
    const auto block = touchedBlock(allocationOf(myRank()));
    awaitNewSample(monitor);
    monitor.stop();  // the figures stand still from here on
    EXPECT_GE(monitor.getProcessMemory(SystemMonitor::Resident) - before,
              allocationOf(myRank()) - MiB)
        << "the rank's own allocation";

    for (const Metric m : allMetrics) {
        const auto name = std::string(SystemMonitor::metricName(m));
        expectFiguresAgree(everyRanks(monitor.getProcessMemory(m)), monitor.getHostMemory(m),
                           monitor.getGlobalAccumulatedMemory(m),
                           monitor.getGlobalMaxProcessMemory(m),
                           monitor.getGlobalMinProcessMemory(m), monitor.getGlobalMaxHostMemory(m),
                           monitor.getGlobalMinHostMemory(m), name.c_str());
        const auto peak = name + " peak";
        expectFiguresAgree(
            everyRanks(monitor.getProcessPeakMemory(m)), monitor.getHostPeakMemory(m),
            monitor.getGlobalAccumulatedPeakMemory(m), monitor.getGlobalMaxProcessPeakMemory(m),
            monitor.getGlobalMinProcessPeakMemory(m), monitor.getGlobalMaxHostPeakMemory(m),
            monitor.getGlobalMinHostPeakMemory(m), peak.c_str());
    }
    const std::int64_t libraries =
        Machine::getHost().firstProcessOnHost() ? 0 : monitor.getProcessMemory(SystemMonitor::Lib);
    EXPECT_EQ(monitor.getProcessMemory(SystemMonitor::AdjustedVirtual),
              monitor.getProcessMemory(SystemMonitor::Virtual) - libraries)
        << "libraries count once per host";
}

TEST(SystemMonitor, TheExportSumsEveryRanksLastSamples) {
    SystemMonitor monitor;
    monitor.setYieldTime(5);
    monitor.start();
    EXPECT_EQ(monitor.getTime(), 0.0);
    monitor.startRecording();
    const auto block = touchedBlock(allocationOf(myRank()));
    awaitNewSample(monitor);
    monitor.stopRecording();
    EXPECT_EQ(monitor.getTime(), 0.0);
    monitor.stop();

    unsigned masterPid = unsigned(::getpid());
    world().broadcast(masterPid, 0);
    const std::string fileName = "monitor-mpi-" + std::to_string(masterPid) + ".csv";
    testing::internal::CaptureStdout();
    monitor.exportHistoryData(fileName);
    const std::string printed = testing::internal::GetCapturedStdout();
    const Values libs = everyRanks(monitor.getProcessMemory(SystemMonitor::Lib));
    if (myRank() != 0) {
        EXPECT_EQ(printed, "") << "only the master writes";
        return;
    }
    const auto lines = test::linesOf(fileName);
    std::remove(fileName.c_str());
    ASSERT_GE(lines.size(), 2u);
    const auto fields = test::fieldsOf(lines.back());
    ASSERT_EQ(fields.size(), 7u);
    const Values last(fields.begin() + 1, fields.end());  // after the time
    std::int64_t allocated = 0, librariesBeyondFirst = 0;
    for (unsigned rank = 0; rank < Machine::nProcesses(); ++rank) {
        allocated += allocationOf(rank);
        if (expectedRanksOnHostOf(rank).front() != rank)
            librariesBeyondFirst += libs[rank];
    }
    EXPECT_GE(last[SystemMonitor::Resident], allocated) << "every rank's block";
    EXPECT_EQ(last[SystemMonitor::Virtual] - last[SystemMonitor::AdjustedVirtual],
              librariesBeyondFirst);
}

}  // namespace
}  // namespace tolm
