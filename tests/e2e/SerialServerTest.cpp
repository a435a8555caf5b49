#include <gtest/gtest.h>

#include <regex>

#include "ServerJobs.h"

namespace tolm {
namespace {

using test::ChildResult;
using test::responses;
using test::runChild;

// In a host of its own where the system permits: servers of other tests running beside it would
// make it warn of CPU contention on standard error, which these cases compare whole.
ChildResult runServer(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin(), TOLM_SERVER_PATH);
    if (test::unshareAllowed())
        arguments.insert(arguments.begin(), {"unshare", "--uts"});
    return runChild(arguments, input, 30);
}

class SerialServer : public ::testing::Test {
  protected:
    void SetUp() override { _dir = test::makeTemporaryDirectory(); }
    std::string batch(const std::string& text) {
        const std::string path = _dir + "/batch.jsonl";
        test::writeTextFile(path, text);
        return path;
    }
    std::string _dir;
};

TEST_F(SerialServer, RunsABatchAndExitsZero) {
    const auto result = runServer(
        {"-s", "-param", "velocity", "3.5", "-batch",
         batch("{\"command\":\"Echo\",\"payload\":[1,2,3]}\n{\"command\":\"MachineInfo\"}\n")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out;
    EXPECT_EQ(answers[0].toString(), R"({"command":"Echo","payload":[1,2,3]})");
    EXPECT_EQ(answers[1].get<std::string>("role"), "Serial");
    EXPECT_EQ(answers[1].get<int>("processes"), 1);
    EXPECT_EQ(answers[1].get<std::string>("machineConfig"), "Serial");
    EXPECT_EQ(answers[1].getChild("settings").getChild("parameters").get<std::string>("velocity"),
              "3.5");
}

TEST_F(SerialServer, InATerminalItSaysThatItReadsStandardInput) {
    // script runs the server with a terminal on its standard input and output.
    const auto result = test::runChild(
        {"script", "-qec", std::string(TOLM_SERVER_PATH) + " -s", "/dev/null"}, "", 30);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              "Reading commands from standard input, one JSON object per line; end with Ctrl-D "
              "(tolm-server -help lists the commands)\r\n");
}

// Each line is answered with its error and the batch goes on; the failures give the run the
// server-error code. The numeric fields name their command's own range.
TEST_F(SerialServer, FailedCommandsAreAnsweredAndTheBatchGoesOn) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{broken", "Malformed command on line 1: Malformed properties text: not valid JSON"},
        {R"({"command":"Profile"})", "The profile is off: start the server with -time"},
        {R"({"command":"MemoryUsage"})",
         "The memory monitor is not enabled: start the server with -memorymonitor SECONDS"},
        {R"({"command":"WriteField","filename":"f","valuesPerRank":4})",
         "WriteField needs MPI: start the server under mpiexec, without -s"},
        {R"({"command":"Solve","iterations":-1})",
         R"("iterations" must be an integer in 0..1000000)"},
        {R"({"command":"Solve","n":2.5})", R"("n" must be an integer in 1..8192)"},
        {R"({"command":"Solve","reportEvery":4294967297})",
         R"("reportEvery" must be an integer in 1..1000000)"},
        {R"({"command":"Sleep","ranks":[1]})", R"("ranks" must be a list of integers in 0..0)"},
        {R"({"command":"RaiseFloatingPointError","rank":-1})",
         R"("rank" must be an integer in 0..0)"},
        {R"({"command":"Sleep","seconds":1e300})", R"("seconds" must be a number in 0..3600)"},
    };
    std::string lines;
    for (const auto& entry : cases)
        lines += entry.first + "\n";
    const auto result = runServer({"-s", "-batch", batch(lines + R"({"command":"Echo"})")});
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), cases.size() + 1) << result.out << result.err;
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(answers[i].get<std::string>("message", ""), cases[i].second) << cases[i].first;
    EXPECT_EQ(answers.back().toString(), R"({"command":"Echo"})");
}

// A batch file that does not exist is ParallelServerTest's.
TEST_F(SerialServer, StartUpFailuresEndTheRunWithTheirCodeAndMessage) {
    const std::regex drivers(
        "Error: Failed to initialize MPI wrapper: libTolmIntelMpi.so: cannot open .*\n"
        "MPI drivers of this build: -mpi platform \\((Open MPI|MPICH) [0-9.]+\\), "
        "-mpi openmpi4 \\(Open MPI [0-9.]+\\), -mpi mpich2 \\(MPICH [0-9.]+\\)\n");
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string err;
    } cases[] = {
        {{"-mpi"}, 2, "Error: Missing -mpidriver arg\n"},
        {{"-s", "-batch"}, 2, "Error: Missing -batch arg\n"},
        {{"-s", "-batch", _dir}, 4, "Error: Cannot read batch file " + _dir + "\n"},
        {{"-mpi", "intel"}, 1, ""},  // the loader's text, matched by `drivers`
    };
    for (const auto& [arguments, exitCode, err] : cases) {
        SCOPED_TRACE(arguments.back());
        const auto result = runServer(arguments);
        EXPECT_EQ(result.exitCode, exitCode);
        if (err.empty())
            EXPECT_TRUE(std::regex_match(result.err, drivers)) << result.err;
        else
            EXPECT_EQ(result.err, err);
        EXPECT_EQ(result.out, "");
    }
}

}  // namespace
}  // namespace tolm
