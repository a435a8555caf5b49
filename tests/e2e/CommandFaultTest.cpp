#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "ServerJobs.h"
#include "support/InteractiveChild.h"

namespace tolm {
namespace {

using test::InteractiveChild;
using test::Job;
using test::responses;

class CommandFaults : public testing::TestWithParam<Job> {
  protected:
    test::ChildResult run(const std::string& batch) { return test::runJob(GetParam(), {}, batch); }
};

TEST_P(CommandFaults, TheLowestFailingRankIsReportedAndTheServerGoesOn) {
    const auto result =
        run("{\"command\":\"Fail\",\"ranks\":[2,1]}\n"
            "{\"command\":\"Fail\",\"ranks\":[3,0]}\n"
            "{\"command\":\"Echo\",\"after\":true}\n");
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 3u) << result.out;
    EXPECT_EQ(answers[0].get<std::string>("message"), "Command failed on rank 1");
    EXPECT_EQ(answers[0].get<int>("Rank"), 1);
    EXPECT_EQ(answers[1].get<std::string>("message"), "Command failed on rank 0");
    EXPECT_FALSE(answers[1].has("Rank")) << "the master's own error carries no rank";
    EXPECT_TRUE(answers[2].get<bool>("after"));
}

TEST_P(CommandFaults, AFloatingPointExceptionOnOneRankIsReportedForAll) {
    const auto result =
        run("{\"command\":\"RaiseFloatingPointError\",\"rank\":3}\n"
            "{\"command\":\"Echo\",\"after\":true}\n");
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out << result.err;
    EXPECT_EQ(answers[0].get<std::string>("message"),
              "A floating point error has occurred. The following error has been logged:\n"
              "  Floating point division by zero, the specific cause cannot be identified\n"
              "Please refer to the troubleshooting section of the User's Guide.");
    EXPECT_FALSE(answers[0].has("Rank")) << "every rank raised it, the master too";
    EXPECT_TRUE(answers[1].get<bool>("after"));
}

TEST_P(CommandFaults, ANonRecoverableErrorOnASlaveEndsTheJobWith32) {
    const auto result =
        run("{\"command\":\"Echo\"}\n"
            "{\"command\":\"Fail\",\"ranks\":[2],\"nonRecoverable\":true}\n"
            "{\"command\":\"Echo\",\"never\":true}\n");
    EXPECT_EQ(result.exitCode, 32);
    const std::string message = "Error: Command failed on rank 2\n";
    const auto first = result.err.find(message);
    ASSERT_NE(first, std::string::npos) << result.err;
    EXPECT_EQ(result.err.find(message, first + 1), std::string::npos) << "printed once";
    EXPECT_EQ(responses(result.out).size(), 1u);
}

// On the master's worker thread; a slave's error and a worker's error reaching its caller are
// the case above and HybridSerialTest's (WorkerThreadPolicy).
TEST_P(CommandFaults, ANonRecoverableErrorOnTheMastersWorkerThreadEndsTheJobWith32) {
    const auto result =
        run("{\"command\":\"Fail\",\"ranks\":[0],\"nonRecoverable\":true,"
            "\"onWorkerThread\":true}\n"
            "{\"command\":\"Echo\",\"never\":true}\n");
    EXPECT_EQ(result.exitCode, 32) << result.err;
    EXPECT_NE(result.err.find("Error: Command failed on rank 0\n"), std::string::npos)
        << result.err;
    EXPECT_TRUE(responses(result.out).empty()) << result.out;
}

// Starts the job, learns the ranks' process ids, lets `prepare` put the job in the state the
// test wants, kills rank `victim` and returns how the job ended.
int killedJobExit(const Job& job, const std::string& before, unsigned int victim) {
    InteractiveChild server(test::jobCommand(job, {}));
    server.writeLine("{\"command\":\"MachineInfo\"}");
    std::string line;
    if (!server.readLine(line, 30))
        return -2;
    const auto pids = Properties(line).get<std::vector<int>>("pids");
    if (!before.empty())
        server.writeLine(before);
    ::usleep(500 * 1000);  // the slaves are now idle, or inside the command's collectives
    ::kill(pids.at(victim), SIGKILL);
    return server.waitForExit(15);
}

// A job one of whose ranks was killed ends by itself, within the wait, and not with success.
void expectEndedByTheKill(int exitCode) {
    EXPECT_NE(exitCode, -1) << "the job still ran 15 s after a rank died";
    EXPECT_NE(exitCode, 0);
}

TEST_P(CommandFaults, ASlaveKilledWhileIdleEndsTheJob) {
    expectEndedByTheKill(killedJobExit(GetParam(), "", 2));
}

TEST_P(CommandFaults, ASlaveKilledInACollectiveEndsTheJob) {
    expectEndedByTheKill(
        killedJobExit(GetParam(), "{\"command\":\"Sleep\",\"ranks\":[0],\"seconds\":5}", 1));
}

TEST_P(CommandFaults, TheMasterKilledEndsTheJob) {
    expectEndedByTheKill(killedJobExit(GetParam(), "", 0));
}

// The process id of `rank`, from the "-printpids" lines on the job's standard error.
int announcedPid(const InteractiveChild& job, unsigned int rank) {
    const std::string prefix = "Rank " + std::to_string(rank) + ": process ";
    for (int attempt = 0; attempt < 3000; ++attempt) {
        const std::string err = job.standardError();
        const auto at = err.find(prefix);
        if (at != std::string::npos)
            return std::stoi(err.substr(at + prefix.size()));
        ::usleep(10 * 1000);
    }
    return -1;
}

TEST_P(CommandFaults, ARankKilledDuringStartUpEndsTheJob) {
    InteractiveChild server(test::jobCommand(GetParam(), {"-printpids"}));
    const int pid = announcedPid(server, 3);
    ASSERT_GT(pid, 0) << server.standardError();
    ::kill(pid, SIGKILL);
    expectEndedByTheKill(server.waitForExit(15));
}

TEST_P(CommandFaults, ABatchCutOffMidLineIsAnsweredAndTheJobEnds) {
    const auto result = run("{\"command\":\"Echo\",\"n\":1}\n{\"command\":\"Ec");
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out;
    EXPECT_EQ(answers[1].get<std::string>("message"),
              "Malformed command on line 2: Malformed properties text: not valid JSON");
}

TEST_P(CommandFaults, DeepNestingAndRanksThatDoNotExistAreAnsweredAndTheJobGoesOn) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    // A batch file: MPICH's launcher ends the job when a long line arrives on standard input
    // faster than the master reads it.
    const std::string batch = test::makeTemporaryDirectory() + "/batch.jsonl";
    test::writeTextFile(batch, "{\"command\":\"Echo\",\"deep\":" + deep + "}\n" +
                                   "{\"command\":\"Fail\",\"ranks\":[4]}\n" +
                                   "{\"command\":\"Echo\",\"after\":true}\n");
    const auto result = test::runJob(GetParam(), {"-batch", batch});
    std::filesystem::remove_all(std::filesystem::path(batch).parent_path());
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 3u) << result.out << result.err;
    EXPECT_EQ(answers[0].get<std::string>("message"),
              "Malformed command on line 1: Malformed properties text: nested deeper than 128 "
              "levels");
    EXPECT_EQ(answers[1].get<std::string>("message"),
              "\"ranks\" must be a list of integers in 0..3");
    EXPECT_TRUE(answers[2].get<bool>("after"));
}

INSTANTIATE_TEST_SUITE_P(BothMpis, CommandFaults, test::bothMpis(4, 4), test::caseName);

}  // namespace
}  // namespace tolm
