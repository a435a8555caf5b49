// How a job that cannot go on tells its user why: a launcher that does not match the MPI
// driver, a rank that fails before a collective the others entered (the roll-call), and a
// rank that dies of a fatal signal.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <regex>

#include "ServerJobs.h"
#include "support/InteractiveChild.h"

namespace tolm {
namespace {

using test::InteractiveChild;
using test::Job;
using test::responses;

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Each MPI's launcher with the other MPI's driver: every process would be a job of its own.
struct WrongLauncher {
    Job job;
    const char* message;
};

void PrintTo(const WrongLauncher& wrong, std::ostream* out) {
    test::PrintTo(wrong.job, out);
}

class LauncherCheck : public testing::TestWithParam<WrongLauncher> {};

TEST_P(LauncherCheck, AMismatchedDriverIsRefusedWithOneMessage) {
    const auto result = test::runJob(GetParam().job, {}, "{\"command\":\"Echo\"}\n");
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_EQ(occurrences(result.err, GetParam().message), 1u) << result.err;
    EXPECT_TRUE(responses(result.out).empty()) << "no process ran the batch\n" << result.out;
}

INSTANTIATE_TEST_SUITE_P(
    BothDirections, LauncherCheck,
    testing::Values(
        WrongLauncher{Job{"mpich2", test::openMpi, "MPICH", 2},
                      "Error: Open MPI's mpirun started 2 processes, but MPI sees 1: the MPI "
                      "driver does not match the launcher. Start the server with \"-mpi "
                      "openmpi4\" (or \"-mpi auto\") under this launcher.\n"},
        WrongLauncher{Job{"openmpi4", test::mpich, "Open MPI", 2},
                      "Error: MPICH's mpiexec (Hydra) started 2 processes, but MPI sees 1: the "
                      "MPI driver does not match the launcher. Start the server with \"-mpi "
                      "mpich2\" (or \"-mpi auto\") under this launcher.\n"}),
    [](const testing::TestParamInfo<WrongLauncher>& info) {
        return std::string(info.param.job.distribution == std::string("MPICH") ? "Mpich"
                                                                               : "OpenMpi") +
               "DriverUnderTheOtherLauncher";
    });

class JobFailures : public testing::TestWithParam<Job> {};

TEST_P(JobFailures, AutoTakesTheDriverOfTheLauncher) {
    Job job = GetParam();
    job.driver = "auto";
    const auto result = test::runJob(job, {}, "{\"command\":\"MachineInfo\"}\n");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 1u) << result.out;
    EXPECT_EQ(answers[0].get<int>("processes"), job.ranks);
    EXPECT_EQ(answers[0].get<std::string>("mpiDistribution"), job.distribution);
}

// The roll-call line of `rank`, in the shape every line has.
std::string rollCallPattern(int rank, const std::string& state, const std::string& rest) {
    return "Roll-call: host [^,]+, rank " + std::to_string(rank) + ", pid [0-9]+, " + state +
           ", command \"" + rest;
}

void expectLine(const std::string& err, const std::string& pattern) {
    EXPECT_TRUE(std::regex_search(err, std::regex("(^|\n)" + pattern + "\n"))) << pattern << "\n"
                                                                               << err;
}

TEST_P(JobFailures, ARankFailingBeforeACollectiveEndsTheJobWithItsErrorAndARollCall) {
    const auto result =
        test::runJob(GetParam(), {"-hangtimeout", "2"},
                     "{\"command\":\"Fail\",\"ranks\":[1],\"beforeCollective\":true}\n"
                     "{\"command\":\"Echo\",\"never\":true}\n");
    EXPECT_EQ(result.exitCode, 32) << result.err;
    EXPECT_EQ(occurrences(result.err, "Error: Command failed on rank 1\n"), 1u) << result.err;
    const std::string waited = R"( for [0-9]+\.[0-9] s)";
    expectLine(result.err,
               rollCallPattern(1, "Gathering response",
                               R"(Fail", in Communicator::AllReduce \(4 bytes, machine's )"
                               R"(private communicator\))" +
                                   waited + R"(, holding error "Command failed on rank 1")"));
    for (int rank : {0, 2, 3}) {
        expectLine(result.err, rollCallPattern(rank, "Processing",
                                               R"(Fail", in Communicator::AllReduce \(4 bytes, )"
                                               R"(global communicator\))" +
                                                   waited));
    }
    EXPECT_TRUE(responses(result.out).empty()) << result.out;
}

// Also: waiting for the next command, longer than the hang limit, does not end the job.
TEST_P(JobFailures, TheRollCallOnDemandLeavesTheJobRunning) {
    InteractiveChild server(test::jobCommand(GetParam(), {"-hangtimeout", "1"}));
    server.writeLine("{\"command\":\"Echo\",\"n\":1}");
    std::string line;
    ASSERT_TRUE(server.readLine(line, 30)) << server.standardError();
    ::kill(server.pid(), SIGUSR1);  // to the launcher, which passes it on to every rank
    for (int attempt = 0; attempt < 500 && occurrences(server.standardError(), "Roll-call:") < 4;
         ++attempt) {
        ::usleep(20 * 1000);
    }
    const std::string err = server.standardError();
    for (int rank = 0; rank < GetParam().ranks; ++rank)
        expectLine(err, rollCallPattern(rank, "Awaiting command", "Echo\", .*"));
    ::usleep(2500 * 1000);  // idle for longer than the limit
    server.writeLine("{\"command\":\"Echo\",\"n\":2}");
    ASSERT_TRUE(server.readLine(line, 30)) << server.standardError();
    EXPECT_EQ(Properties(line).get<int>("n"), 2);
    server.closeInput();
    EXPECT_EQ(server.waitForExit(30), 0) << server.standardError();
}

TEST_P(JobFailures, AFatalSignalOnTheMasterEndsTheJobNamingRankAndSignal) {
    InteractiveChild server(test::jobCommand(GetParam(), {}));
    server.writeLine("{\"command\":\"MachineInfo\"}");
    std::string line;
    ASSERT_TRUE(server.readLine(line, 30)) << server.standardError();
    const auto pids = Properties(line).get<std::vector<int>>("pids");
    ::kill(pids.at(0), SIGSEGV);
    const int exitCode = server.waitForExit(15);
    EXPECT_NE(exitCode, -1) << "the job still ran 15 s after its master died";
    EXPECT_NE(exitCode, 0);
    EXPECT_EQ(occurrences(server.standardError(),
                          "Error: rank 0 ended by signal SIGSEGV (segmentation fault)\n"),
              1u)
        << server.standardError();
}

INSTANTIATE_TEST_SUITE_P(BothMpis, JobFailures, test::bothMpis(4, 4), test::caseName);

}  // namespace
}  // namespace tolm
