#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "neo/Properties.h"
#include "platform/StringHelper.h"
#include "support/ChildRun.h"

namespace tolm {
namespace {

struct Launcher {
    const char* command;      // the launcher and its options, separated by blanks
    const char* environment;  // VAR=VALUE settings it needs, separated by blanks
};

constexpr Launcher openMpi{TOLM_OPENMPI_LAUNCH, TOLM_OPENMPI_ENVIRONMENT};
constexpr Launcher mpich{TOLM_MPICH_LAUNCH, TOLM_MPICH_ENVIRONMENT};

struct Job {
    const char* driver;
    Launcher launcher;
    const char* distribution;
    int ranks;
};

void PrintTo(const Job& job, std::ostream* out) {
    *out << job.driver << " on " << job.ranks;
}

std::string jobName(const testing::TestParamInfo<Job>& info) {
    return std::string(info.param.driver) + "_np" + std::to_string(info.param.ranks);
}

test::ChildResult runJob(const Job& job, std::vector<std::string> serverArguments,
                         const std::string& input = "") {
    for (const auto& setting : StringHelper::split(job.launcher.environment, ' ')) {
        if (!setting.empty())
            ::putenv(::strdup(setting.c_str()));
    }
    std::vector<std::string> command = StringHelper::split(job.launcher.command, ' ');
    command.insert(command.end(),
                   {"-n", std::to_string(job.ranks), TOLM_SERVER_PATH, "-mpi", job.driver});
    command.insert(command.end(), serverArguments.begin(), serverArguments.end());
    return test::runChild(command, input, 60);
}

std::vector<Properties> responses(const std::string& out) {
    std::vector<Properties> parsed;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() == '{')
            parsed.emplace_back(line);
    }
    return parsed;
}

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

INSTANTIATE_TEST_SUITE_P(BothMpis, ParallelServer,
                         testing::Values(Job{"openmpi4", openMpi, "Open MPI", 1},
                                         Job{"openmpi4", openMpi, "Open MPI", 4},
                                         Job{"mpich2", mpich, "MPICH", 1},
                                         Job{"mpich2", mpich, "MPICH", 4}),
                         jobName);

TEST(ParallelServerStart, MissingDriverFailsEveryRankWithTheLoaderText) {
    const auto result = runJob(Job{"intel", mpich, "", 2}, {});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.err.find("Error: Failed to initialize MPI wrapper: libTolmIntelMpi.so: "),
              std::string::npos)
        << result.err;
}

}  // namespace
}  // namespace tolm
