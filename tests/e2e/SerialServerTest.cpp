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
    static const bool ownHost = runChild({"unshare", "--uts", "true"}).exitCode == 0;
    arguments.insert(arguments.begin(), TOLM_SERVER_PATH);
    if (ownHost)
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

TEST_F(SerialServer, BadLinesAreAnsweredAndTheBatchGoesOn) {
    const auto result =
        runServer({"-s", "-batch",
                   batch("{\"command\":\"Echo\"}\n{broken\n{\"command\":\"NoSuchCommand\"}\n"
                         "{\"command\":\"Profile\"}\n{\"command\":\"Echo\",\"last\":true}\n")});
    EXPECT_EQ(result.exitCode, 1) << "failed commands mark the run with the server-error code";
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 5u) << result.out;  // their texts: ControllerTest
    EXPECT_EQ(answers[3].get<std::string>("message"),
              "The profile is off: start the server with -time");
    EXPECT_TRUE(answers[4].get<bool>("last"));
}

TEST_F(SerialServer, ADeeplyNestedLineIsAnsweredAndTheBatchGoesOn) {
    const std::string deep(100000, '[');
    const auto result = runServer(
        {"-s", "-batch",
         batch("{\"command\":\"Echo\",\"deep\":" + deep + std::string(100000, ']') + "}\n" +
               "{\"command\":\"Echo\",\"last\":true}\n")});
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out << result.err;
    EXPECT_EQ(answers[0].get<std::string>("message"),
              "Malformed command on line 1: Malformed properties text: nested deeper than 128 "
              "levels");
    EXPECT_TRUE(answers[1].get<bool>("last"));
}

TEST_F(SerialServer, NumericFieldsOutOfTheirRangeAreRefusedNamingFieldAndRange) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"command":"Solve","iterations":-1})", R"("iterations" must be an integer in 0..1000000)"},
        {R"({"command":"Solve","n":2.5})", R"("n" must be an integer in 1..8192)"},
        {R"({"command":"Solve","reportEvery":4294967297})",
         R"("reportEvery" must be an integer in 1..1000000)"},
        {R"({"command":"Fail","ranks":[4294967296]})", R"("ranks" must be a list of integers in 0..0)"},
        {R"({"command":"Sleep","ranks":[1]})", R"("ranks" must be a list of integers in 0..0)"},
        {R"({"command":"RaiseFloatingPointError","rank":-1})", R"("rank" must be an integer in 0..0)"},
        {R"({"command":"Sleep","seconds":1e300})", R"("seconds" must be a number in 0..3600)"},
    };
    std::string lines;
    for (const auto& entry : cases)
        lines += entry.first + "\n";
    const auto result = runServer({"-s", "-batch", batch(lines)});
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), cases.size()) << result.out << result.err;
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(answers[i].get<std::string>("message", ""), cases[i].second) << cases[i].first;
}

TEST_F(SerialServer, OptionErrorsExitWithTheInvalidArgumentCode) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-s", "-tmpdir"}, "Missing -tmpdir arg"},
        {{"-s", "-batch"}, "Missing -batch arg"},
        {{"-mpi", "nosuchmpi"}, "Unknown MPI driver: nosuchmpi"},
        {{"-mpidriver"}, "Missing -mpidriver arg"},
        {{"-mpi"}, "Missing -mpidriver arg"},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = runServer(arguments);
        EXPECT_EQ(result.exitCode, 2) << message;
        EXPECT_EQ(result.err, "Error: " + message + "\n");
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(SerialServer, MissingBatchFileIsAFileError) {
    const auto result = runServer({"-s", "-batch", _dir + "/absent.jsonl"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "Error: Cannot open batch file " + _dir +
                              "/absent.jsonl: No such file or directory\n");
}

TEST_F(SerialServer, ABatchThatCannotBeReadIsAFileError) {
    const auto result = runServer({"-s", "-batch", _dir});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "Error: Cannot read batch file " + _dir + "\n");
}

TEST_F(SerialServer, MissingMpiDriverReportsTheLoaderTextAndTheBuiltDrivers) {
    const auto result = runServer({"-mpi", "intel"});
    EXPECT_EQ(result.exitCode, 1);
    const std::regex expected(
        "Error: Failed to initialize MPI wrapper: libTolmIntelMpi.so: cannot open .*\n"
        "MPI drivers of this build: -mpi platform \\((Open MPI|MPICH) [0-9.]+\\), "
        "-mpi openmpi4 \\(Open MPI [0-9.]+\\), -mpi mpich2 \\(MPICH [0-9.]+\\)\n");
    EXPECT_TRUE(std::regex_match(result.err, expected)) << result.err;
}

}  // namespace
}  // namespace tolm
