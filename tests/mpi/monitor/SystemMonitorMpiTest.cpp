// The memory monitor on every rank of a job: host sums, job figures and the history export,
// with rank-dependent allocations, on one host or on two simulated ones.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "hostmap/HostMapTesting.h"
#include "machine/MachineHost.h"
#include "machine/SystemMonitor.h"

namespace tolm {
namespace {

using namespace hostmaptest;
using Metric = SystemMonitor::MemoryMetric;
using Values = std::vector<std::int64_t>;
constexpr std::int64_t MiB = 1 << 20;
constexpr Metric allMetrics[] = {SystemMonitor::Virtual,     SystemMonitor::Resident,
                                 SystemMonitor::Lib,         SystemMonitor::VirtualHwm,
                                 SystemMonitor::ResidentHwm, SystemMonitor::AdjustedVirtual};

unsigned myRank() {
    return Machine::getPartitionId();
}

std::int64_t allocationOf(unsigned rank) {
    return std::int64_t(rank + 1) * 8 * MiB;
}

// Memory of `bytes` with every page written, so that all of it is resident.
std::unique_ptr<char[]> touchedBlock(std::int64_t bytes) {
    std::unique_ptr<char[]> block(new char[std::size_t(bytes)]);
    for (std::int64_t at = 0; at < bytes; at += 4096)
        static_cast<volatile char*>(block.get())[at] = 1;
    return block;
}

void awaitNewSample(SystemMonitor& monitor) {
    monitor.resetPeak();
    monitor.getProcessPeakMemory(SystemMonitor::Virtual);
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

std::vector<std::int64_t> lastLineOf(const std::string& fileName, std::string& header) {
    std::ifstream in(fileName);
    std::getline(in, header);
    std::string line, last;
    while (std::getline(in, line))
        last = line;
    std::vector<std::int64_t> fields;
    std::istringstream fieldsIn(last);
    std::string field;
    std::getline(fieldsIn, field, ',');  // the time
    while (std::getline(fieldsIn, field, ','))
        fields.push_back(std::stoll(field));
    return fields;
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
    EXPECT_EQ(printed, "Exporting memory history to file : " + fileName + "\n");
    std::string header;
    const auto last = lastLineOf(fileName, header);
    std::remove(fileName.c_str());
    EXPECT_EQ(header, "time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual");
    ASSERT_EQ(last.size(), 6u);
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
