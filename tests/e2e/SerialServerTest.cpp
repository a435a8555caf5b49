#include <gtest/gtest.h>

#include <sstream>

#include "neo/Properties.h"
#include "support/ChildRun.h"

namespace tolm {
namespace {

using test::ChildResult;
using test::runChild;

ChildResult runServer(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin(), TOLM_SERVER_PATH);
    return runChild(arguments, input, 30);
}

std::vector<Properties> responses(const std::string& out) {
    std::vector<Properties> parsed;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line))
        parsed.emplace_back(line);
    return parsed;
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

TEST_F(SerialServer, ReadsStandardInputWithoutBatch) {
    const auto result = runServer({"-s"}, "{\"command\":\"Echo\",\"n\":1}");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "{\"command\":\"Echo\",\"n\":1}\n");
}

TEST_F(SerialServer, BadLinesAreAnsweredAndTheBatchGoesOn) {
    const auto result =
        runServer({"-s", "-batch",
                   batch("{\"command\":\"Echo\"}\n{broken\n{\"command\":\"NoSuchCommand\"}\n"
                         "{\"command\":\"Profile\"}\n{\"command\":\"Echo\",\"last\":true}\n")});
    EXPECT_EQ(result.exitCode, 1) << "failed commands mark the run with the server-error code";
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 5u) << result.out;
    EXPECT_EQ(answers[1].get<std::string>("message"),
              "Malformed command on line 2: Malformed properties text: not valid JSON");
    EXPECT_EQ(answers[2].get<std::string>("message"), "Unknown command: NoSuchCommand");
    EXPECT_EQ(answers[3].get<std::string>("message"),
              "The profile is off: start the server with -time");
    EXPECT_TRUE(answers[4].get<bool>("last"));
}

TEST_F(SerialServer, OptionErrorsExitWithTheInvalidArgumentCode) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-s", "-tmpdir"}, "Missing -tmpdir arg"},
        {{"-s", "-param", "a"}, "Missing -param arg arg"},
        {{"-s", "-cpubind", "Latency"},
         "-cpubind argument must be latency/leastload/disable (don't specify anything for "
         "bandwidth)"},
        {{"-s", "-taskid", "0", "-jobmanagerurl", "http://jm"},
         "Both -jobmanagerurl and -taskid must be specified when using Job Manager"},
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

TEST_F(SerialServer, MissingMpiDriverReportsTheLoaderText) {
    const auto result = runServer({"-mpi", "intel"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(
        result.err.find("Error: Failed to initialize MPI wrapper: libTolmIntelMpi.so: cannot open"),
        std::string::npos)
        << result.err;
}

}  // namespace
}  // namespace tolm
