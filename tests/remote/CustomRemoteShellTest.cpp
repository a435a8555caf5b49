// Launches through a remote shell of the user's choice: the script test-rsh, which prints the
// arguments it receives and runs the remote command as a remote host's shell would.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "neo/SingletonCleaner.h"
#include "remote/ReportedLaunch.h"

namespace tolm {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class CustomRemoteShell : public ::testing::Test {
protected:
    void SetUp() override {
        // A directory with a blank in its name, so that the program word needs its quotes.
        _directory = fs::temp_directory_path() / ("tolm rsh " + std::to_string(::getpid()));
        fs::create_directories(_directory);
        _shell = _directory / "test-rsh";
        fs::copy_file(TOLM_TEST_RSH, _shell, fs::copy_options::overwrite_existing);
    }
    void TearDown() override {
        fs::remove_all(_directory);
        Machine::reset();
        SingletonCleaner::reset();
    }

    // The default launcher for the quoted shell path followed by `options`.
    RemoteProcessLauncher& launcherWith(const std::string& options) {
        return test::launcherFromRshOption("'" + _shell.string() + "' " + options);
    }

    fs::path _directory;
    fs::path _shell;
};

TEST_F(CustomRemoteShell, QuotingHoldsFromTheOptionTextToTheRemoteCommand) {
    auto& launcher = launcherWith(R"(-x -o 'A B' -o "say \"hi\"")");
    int status = -1;
    const Lines lines = test::runReported(
        launcher, L"node7", L"alice", {L"printf", L"'(%s)\\n'", L"a b", L"c", L"$((6*7))"}, status);
    EXPECT_EQ(lines, (Lines{"[-x]", "[-o]", "[A B]", "[-o]", R"([say "hi"])", "[-l]", "[alice]",
                            "[node7]", "[printf]", R"(['(%s)\n'])", R"(["a b"])", "[c]",
                            "[$((6*7))]", "(a b)", "(c)", "(42)"}));
    EXPECT_EQ(status, 0);
}

TEST_F(CustomRemoteShell, SpawnProcessWaitsAndGivesTheRemoteCommandsExitStatus) {
    EXPECT_EQ(launcherWith("-x").spawnProcess(L"node7", {L"exit", L"7"}), 7);
}

}  // namespace
}  // namespace tolm
