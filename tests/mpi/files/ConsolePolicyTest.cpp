// The start-up policy of the standard streams on both MPIs. Without "-slavelogs" every process
// keeps its console. With it, a slave announces its log files on the console, and from then on
// what it writes through printf, iostreams or write(2) goes to them, for the rest of the
// process; the master's console never moves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "FileTesting.h"
#include "machine/files/StandardStreamManager.h"
#include "machine/files/StreamRedirector.h"
#include "platform/StringHelper.h"
#include "support/Argv.h"
#include "support/EveryPrintApi.h"

namespace tolm::mpitest {
namespace {

// Standard output through every API, and a line of standard error.
void printEverywhere(const std::string& tag) {
    test::printThroughEveryApi(tag);
    std::fprintf(stderr, "error %s\n", tag.c_str());
    std::fflush(stderr);
}

std::string printed(const std::string& tag) {
    return test::printedThroughEveryApi(tag);
}

// Each rank's console is a pair of files for the test's duration.
class ConsolePolicy : public testing::Test {
  protected:
    void SetUp() override {
        _console = std::make_unique<StreamRedirector>(stdout, StringHelper::decode(out()));
        _consoleErr = std::make_unique<StreamRedirector>(stderr, StringHelper::decode(err()));
    }
    void TearDown() override {
        std::fflush(stdout);
        std::fflush(stderr);
        _consoleErr.reset();
        _console.reset();
    }
    std::string out() const { return _dir.rankPath() + "/console"; }
    std::string err() const { return _dir.rankPath() + "/console-err"; }

    // Starts the console as Machine::main does after parsing `argv`, prints, stops it, prints.
    void runConsole(test::Argv argv) {
        Machine::ArgumentMap consumed;
        Machine::parseCommonArgvs(argv.argc(), argv.argv(), consumed);
        Machine::startConsole();
        printEverywhere("during");
        Machine::stopConsole();
        printEverywhere("after");
    }

    const bool _master = world().myRank() == 0;
    JobDirectory _dir;
    std::unique_ptr<StreamRedirector> _console;
    std::unique_ptr<StreamRedirector> _consoleErr;
};

TEST_F(ConsolePolicy, WithoutTheOptionEveryProcessKeepsItsConsole) {
    runConsole({"server"});
    EXPECT_EQ(readTextFile(out()), printed("during") + printed("after"));
    EXPECT_EQ(readTextFile(err()), "error during\nerror after\n");
}

TEST_F(ConsolePolicy, WithSlaveLogsEachSlaveWritesToItsOwnLogsForGood) {
    const std::string logs = _dir.path() + "/logs";
    runConsole({"server", "-slavelogs", logs});
    const std::string stem = logs + "/" + Machine::getExecutableName() + std::to_string(::getpid());
    if (_master) {
        EXPECT_EQ(readTextFile(out()), printed("during") + printed("after"));
        EXPECT_EQ(readTextFile(err()), "error during\nerror after\n");
        EXPECT_FALSE(std::filesystem::exists(stem + "-stdout.txt"));
        return;
    }
    EXPECT_EQ(readTextFile(out()), "Standard output goes to " + stem +
                                       "-stdout.txt, standard error to " + stem + "-stderr.txt\n");
    EXPECT_EQ(readTextFile(err()), "");
    EXPECT_EQ(readTextFile(stem + "-stdout.txt"), printed("during") + printed("after"));
    EXPECT_EQ(readTextFile(stem + "-stderr.txt"), "error during\nerror after\n");
}

}  // namespace
}  // namespace tolm::mpitest
