#include <gtest/gtest.h>

#include "ServerJobs.h"

namespace tolm {
namespace {

using test::Job;
using test::responses;
using test::runJob;

class ParallelServer : public testing::TestWithParam<Job> {};

TEST_P(ParallelServer, RunsTheBatchWithEveryRankAndExitsZero) {
    const Job& job = GetParam();
    const auto result =
        runJob(job, {}, "{\"command\":\"MachineInfo\"}\n{\"command\":\"Echo\",\"n\":7}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out;
    EXPECT_EQ(answers[0].get<std::string>("role"), "Master");
    EXPECT_EQ(answers[0].get<int>("processes"), job.ranks);
    EXPECT_EQ(answers[0].get<std::string>("machineConfig"), "Np=" + std::to_string(job.ranks));
    EXPECT_EQ(answers[0].get<std::string>("mpiDistribution"), job.distribution);
    EXPECT_EQ(answers[1].get<int>("n"), 7);
}

TEST_P(ParallelServer, OptionErrorEndsTheJobWithTheInvalidArgumentCode) {
    const auto result = runJob(GetParam(), {"-cpubind", "Latency"});
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_NE(result.err.find("Error: -cpubind argument must be latency/leastload/disable"),
              std::string::npos)
        << result.err;
}

TEST_P(ParallelServer, MissingBatchFileReleasesTheSlaves) {
    const auto result = runJob(GetParam(), {"-batch", "/nonexistent/batch.jsonl"});
    EXPECT_EQ(result.exitCode, 4) << result.err;
    EXPECT_NE(result.err.find("Error: Cannot open batch file /nonexistent/batch.jsonl"),
              std::string::npos);
}

// "-time": the Profile command answers with every rank's commands and communication, and
// the master prints the profile on standard error at the end of the job. "-yieldwait": the
// processes wait yielding, on any host.
TEST(ParallelServerOptions, TimeProfilesTheJobAndYieldWaitYields) {
    const Job job{"mpich2", test::mpich, "MPICH", 2};
    const auto result = runJob(job, {"-time", "-yieldwait"},
                               "{\"command\":\"MachineInfo\"}\n{\"command\":\"Profile\"}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out;
    EXPECT_TRUE(answers[0].getChild("settings").get<bool>("yieldingWaits"));
    const Properties& profile = answers[1];
    EXPECT_EQ(profile.get<int>("processes"), job.ranks);
    EXPECT_EQ(profile.value().at("commands").at("MachineInfo").at("count").get<int>(), 1);
    EXPECT_EQ(profile.value().at("communicationSeconds").size(), std::size_t(job.ranks));
    EXPECT_NE(result.err.find("Profile of the job over 2 processes"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("\nProfile "), std::string::npos) << "the Profile command's row";
}

INSTANTIATE_TEST_SUITE_P(BothMpis, ParallelServer,
                         testing::Values(Job{"openmpi4", test::openMpi, "Open MPI", 1},
                                         Job{"openmpi4", test::openMpi, "Open MPI", 4},
                                         Job{"mpich2", test::mpich, "MPICH", 1},
                                         Job{"mpich2", test::mpich, "MPICH", 4}),
                         test::caseName);

}  // namespace
}  // namespace tolm
