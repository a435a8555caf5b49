// The memory monitor's commands in a real job: figures, recording and the history export.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "ServerJobs.h"

namespace tolm {
namespace {

using test::Job;
using test::responses;
using test::runJob;

std::int64_t figure(const Properties& record, const char* kind, const char* metric) {
    return record.getChild(kind).get<std::int64_t>(metric);
}

class MemoryServer : public testing::TestWithParam<Job> {};

TEST_P(MemoryServer, ReportsTheJobsFiguresAndExportsTheRecordedHistory) {
    const Job& job = GetParam();
    const std::string history = "/tmp/tolm-memory-" + std::to_string(::getpid()) + "-" +
                                std::to_string(job.ranks) + job.driver + ".csv";
    const auto result = runJob(job, {"-memorymonitor", "0.005"},
                               "{\"command\":\"MemoryUsage\"}\n"
                               "{\"command\":\"StartMemoryRecording\"}\n"
                               "{\"command\":\"Solve\",\"n\":128,\"iterations\":100}\n"
                               // The solve can end within a sampling period.
                               "{\"command\":\"Sleep\",\"seconds\":0.05}\n"
                               "{\"command\":\"StopMemoryRecording\"}\n"
                               "{\"command\":\"ExportMemoryHistory\",\"filename\":\"" +
                                   history + "\"}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 6u) << result.out;

    // The figures themselves are the monitor's, tested under MPI; here the answer's shape.
    const Properties& usage = answers[0];
    const auto processes = usage.value()["processes"];
    ASSERT_EQ(processes.size(), std::size_t(job.ranks)) << usage.toString();
    for (int rank = 0; rank < job.ranks; ++rank)
        EXPECT_EQ(processes[rank]["rank"], rank);
    EXPECT_EQ(usage.value()["hosts"].size(), 1u);
    EXPECT_GT(figure(usage.getChild("global").getChild("current"), "sum", "resident"), 0);
    EXPECT_EQ(usage.get<std::string>("unit"), "bytes");

    EXPECT_TRUE(answers[1].get<bool>("recording"));
    EXPECT_FALSE(answers[4].get<bool>("recording"));
    EXPECT_GT(answers[4].get<double>("time"), 0.0) << "the recording's length";
    EXPECT_EQ(answers[5].get<std::string>("filename"), history);
    std::ifstream file(history);
    std::string header, sample;
    EXPECT_TRUE(std::getline(file, header) && std::getline(file, sample)) << "no sample exported";
    std::remove(history.c_str());
}

TEST_P(MemoryServer, CommandsSayHowToEnableTheMonitor) {
    const auto result = runJob(GetParam(), {}, "{\"command\":\"MemoryUsage\"}\n");
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 1u) << result.out << result.err;
    EXPECT_EQ(answers[0].get<std::string>("message"),
              "The memory monitor is not enabled: start the server with -memorymonitor SECONDS");
}

INSTANTIATE_TEST_SUITE_P(BothMpis, MemoryServer, test::bothMpis(2, 2), test::caseName);

}  // namespace
}  // namespace tolm
