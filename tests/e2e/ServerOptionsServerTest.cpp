// The server's own options under both MPIs' launchers: "-help" and "-version" answer before
// MPI starts, arguments nobody took are named once, and "-check" reports the job's set-up
// per host instead of running a batch.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "ServerJobs.h"

namespace tolm {
namespace {

using Arguments = std::vector<std::string>;
using test::Job;

const std::string simulatedHosts = TOLM_SIMULATED_HOSTS_SCRIPT;

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// `ranks` ranks, each in a UTS namespace of its own named by simulated-hosts.sh (so that no
// other job's server on this machine is on their hosts).
test::ChildResult runOnSimulatedHosts(Job job, int ranks, const Arguments& server) {
    job.ranks = ranks;
    Arguments command = test::jobCommand(job, server);
    const Arguments perRank{simulatedHosts, "--as-rank"};
    command.insert(std::find(command.begin(), command.end(), TOLM_SERVER_PATH), perRank.begin(),
                   perRank.end());
    command.insert(command.begin(), simulatedHosts);
    return test::runChild(command, "", 60);
}

bool unshareAllowed() {
    return test::runChild({"unshare", "--uts", "true"}).exitCode == 0;
}

class ServerOptionsUnderMpi : public testing::TestWithParam<Job> {};

TEST_P(ServerOptionsUnderMpi, HelpAndVersionAnswerWithoutStartingMpi) {
    const std::string version = R"(tolm-server [0-9]+\.[0-9]+\.[0-9]+\nMPI drivers:\n)"
                                R"(  -mpi platform \((Open MPI|MPICH) [0-9.]+\)\n)"
                                R"(  -mpi openmpi4 \(Open MPI [0-9.]+\)\n)"
                                R"(  -mpi mpich2 \(MPICH [0-9.]+\)\n)";
    const std::pair<Arguments, std::string> cases[] = {
        {{"-help"},
         R"(Usage: tolm-server -s \[options\][\s\S]*\n  -check [\s\S]*\n  HostMap [\s\S]*)"},
        {{"--help", "-version"}, R"(Usage: tolm-server [\s\S]*)"},
        {{"-version"}, version},
        {{"--version", "-bogus"}, version},
    };
    for (const auto& [arguments, expected] : cases) {
        const auto result = test::runJob(GetParam(), arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments[0] << result.err;
        EXPECT_TRUE(std::regex_match(result.out, std::regex(expected))) << result.out;
        EXPECT_EQ(result.err, "") << arguments[0];
    }
}

TEST_P(ServerOptionsUnderMpi, TheMasterNamesUnusedOptionsOnce) {
    Job job = GetParam();
    job.ranks = 2;
    const auto result = test::runJob(job, {"-bogus", "3", "-time", "-nothreads", "-x"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(occurrences(result.err, "Warning: unused options: -bogus 3 -x\n"), 1u) << result.err;
    EXPECT_EQ(occurrences(result.err, "unused options"), 1u) << result.err;
}

TEST_P(ServerOptionsUnderMpi, CheckReportsEveryHostAndRunsNoBatch) {
    if (!unshareAllowed())
        GTEST_SKIP() << "unshare --uts is not permitted here";
    const Job job = GetParam();
    const bool openMpi = std::string(job.driver) == "openmpi4";
    const auto result = runOnSimulatedHosts(job, 4, {"-check", "-batch", "/nonexistent.jsonl"});
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const std::string library = openMpi ? R"(/\S+/libmpi\.so\S*, Open MPI v[0-9.]+\S*.*)"
                                        : R"(/\S+/libmpich\.so\S*, MPICH Version: [0-9.]+)";
    const std::string expected =
        "Preflight of 4 processes on 2 hosts\n"
        "launcher: " +
        std::string(openMpi ? R"(mpirun \(Open MPI\))" : R"(mpiexec \(Hydra\))") +
        "\n"
        "driver: -mpi " +
        job.driver + " \\(" + (openMpi ? "TolmOpenMpi4" : "TolmMpich2Ch3") + ", built against " +
        job.distribution +
        " [0-9.]+\\)\n"
        "host hostA: master and 1 slave, ranks 0, 2\n"
        "  MPI library: " +
        library +
        "\n"
        "  vectorization: \\S+\n"
        "  rank 0: bound to LPU [01]\n"
        "  rank 2: bound to LPU [01]\n"
        "  contention: none\n"
        "  temporary directory: \\S+ \\(writable\\)\n"
        "  log directory: none \\(slaves print to the launcher's console\\)\n"
        "host hostB: 2 slaves, ranks 1, 3\n"
        "  MPI library: " +
        library +
        "\n"
        "[\\s\\S]*"
        "All is well.\n";
    EXPECT_TRUE(std::regex_match(result.out, std::regex(expected))) << result.out;
    EXPECT_EQ(result.err.find("mixed vectorization"), std::string::npos) << result.err;
}

// A temporary directory that cannot be used is refused at start-up, before the preflight's own
// checks (whose verdicts the Preflight unit tests cover): the check ends with 2 and the reason.
TEST_P(ServerOptionsUnderMpi, CheckEndsWithTwoWhenAProcessCannotWriteItsDirectories) {
    if (!unshareAllowed())
        GTEST_SKIP() << "unshare --uts is not permitted here";
    const auto result = runOnSimulatedHosts(GetParam(), 2, {"-check", "-tmpdir", "/nonexistent"});
    EXPECT_EQ(result.exitCode, 2) << result.out << result.err;
    EXPECT_NE(result.err.find("Error: -tmpdir /nonexistent is not a writable directory: No such "
                              "file or directory"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.out.find("All is well."), std::string::npos) << result.out;
}

INSTANTIATE_TEST_SUITE_P(BothMpis, ServerOptionsUnderMpi, test::bothMpis(1, 1),
                         [](const testing::TestParamInfo<Job>& info) {
                             return std::string(info.param.driver);
                         });

}  // namespace
}  // namespace tolm
