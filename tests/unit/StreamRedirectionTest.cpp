#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "machine/core/Machine.h"
#include "machine/files/StandardStreamManager.h"
#include "machine/files/StreamRedirector.h"
#include "platform/StringHelper.h"
#include "support/ChildRun.h"
#include "support/EveryPrintApi.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using test::printedThroughEveryApi;
using test::printThroughEveryApi;
using test::readTextFile;

// Points standard output and error at "console" files for the test's duration, so what
// reaches the console can be read back.
class StreamRedirection : public ::testing::Test {
  protected:
    void SetUp() override {
        _dir = test::makeTemporaryDirectory();
        std::fflush(stdout);
        std::fflush(stderr);
        _savedOut = ::dup(STDOUT_FILENO);
        _savedErr = ::dup(STDERR_FILENO);
        console =
            std::make_unique<StreamRedirector>(stdout, StringHelper::decode(_dir + "/console"));
        consoleErr =
            std::make_unique<StreamRedirector>(stderr, StringHelper::decode(_dir + "/console-err"));
    }
    void TearDown() override {
        std::fflush(stdout);
        consoleErr.reset();
        console.reset();
        ::dup2(_savedOut, STDOUT_FILENO);
        ::dup2(_savedErr, STDERR_FILENO);
        ::close(_savedOut);
        ::close(_savedErr);
    }
    std::string consoleText() const { return readTextFile(_dir + "/console"); }

    std::string _dir;
    std::unique_ptr<StreamRedirector> console;
    std::unique_ptr<StreamRedirector> consoleErr;

  private:
    int _savedOut = -1;
    int _savedErr = -1;
};

TEST_F(StreamRedirection, RedirectorCarriesEveryApiAndRestores) {
    {
        StreamRedirector redirect(stdout, StringHelper::decode(_dir + "/file.txt"));
        printThroughEveryApi("inside");
    }
    printThroughEveryApi("after");
    EXPECT_EQ(readTextFile(_dir + "/file.txt"), printedThroughEveryApi("inside"));
    EXPECT_EQ(consoleText(), printedThroughEveryApi("after"));
}

TEST_F(StreamRedirection, LogFilesOpenOnceAndKeepTheirPaths) {
    StandardStreamManager manager(StringHelper::decode(_dir + "/"), false);
    const auto first = manager.redirectOriginalStreamsToFile();
    const auto second = manager.redirectOriginalStreamsToFile();
    EXPECT_EQ(first, second);
    const std::string pid = std::to_string(::getpid());
    EXPECT_EQ(StringHelper::toString(first.first), _dir + "/" + pid + "-stdout.txt");
    printThroughEveryApi("logged");
    std::fprintf(stderr, "error line\n");
    std::fflush(stderr);
    EXPECT_EQ(readTextFile(_dir + "/" + pid + "-stdout.txt"), printedThroughEveryApi("logged"));
    EXPECT_EQ(readTextFile(_dir + "/" + pid + "-stderr.txt"), "error line\n");
    EXPECT_TRUE(manager.hasRedirectedOriginalStreams());
}

TEST_F(StreamRedirection, NullDeviceThenLogsThenRestoreGoesToTheLogs) {
    StandardStreamManager manager(StringHelper::decode(_dir), false);
    EXPECT_TRUE(manager.hasNullRedirection());
    manager.redirectToNullDevice();
    EXPECT_FALSE(manager.hasNullRedirection());
    const auto paths = manager.redirectOriginalStreamsToFile();
    printThroughEveryApi("discarded");
    manager.restore();
    printThroughEveryApi("kept");
    EXPECT_EQ(readTextFile(StringHelper::toString(paths.first)), printedThroughEveryApi("kept"));
    EXPECT_EQ(consoleText(), "");
}

TEST_F(StreamRedirection, PrependedTextLeadsTheLog) {
    StandardStreamManager manager(StringHelper::decode(_dir), false);
    manager.prependOutput("header\n");
    const auto paths = manager.redirectOriginalStreamsToFile();
    printThroughEveryApi("body");
    EXPECT_EQ(readTextFile(StringHelper::toString(paths.first)),
              "header\n" + printedThroughEveryApi("body"));
}

TEST_F(StreamRedirection, UnwritableLogDirectoryIsReported) {
    StandardStreamManager manager(L"/proc/no-such-dir", false);
    EXPECT_EQ(test::errorOf([&] { manager.redirectOriginalStreamsToFile(); }),
              "Failed to redirect stdout");
    printThroughEveryApi("still on the console");
    EXPECT_NE(consoleText().find("write still on the console"), std::string::npos);
}

TEST(StandardStreamManagerNames, DropOnlyTheLastExtension) {
    EXPECT_EQ(StandardStreamManager::logFileName("server", 42, "-stdout.txt"),
              L"server42-stdout.txt");
    EXPECT_EQ(StandardStreamManager::logFileName("tolm.server.exe", 7, "-stderr.txt"),
              L"tolm.server7-stderr.txt");
}

}  // namespace
}  // namespace tolm
