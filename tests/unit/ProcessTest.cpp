#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <string>

#include "platform/Pipe.h"
#include "platform/Process.h"

namespace tolm {
namespace {

using namespace std::chrono_literals;
using OS::Process;
using Clock = std::chrono::steady_clock;

// Everything the pipe carries until its end (or 10 s).
std::string readAll(Pipe& pipe) {
    std::string text;
    char buffer[256];
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
        const int n = pipe.read(buffer, sizeof(buffer), 1s);
        if (n == Pipe::Ended || n == Pipe::Failed)
            break;
        if (n > 0)
            text.append(buffer, n);
    }
    return text;
}

std::unique_ptr<Process::ProcessHandle> spawn(const std::vector<std::string>& arguments,
                                              Pipe* output) {
    std::string error;
    auto child = Process::spawn(arguments, output, error);
    EXPECT_TRUE(child) << error;
    return child;
}

TEST(Process, ArgumentsReachTheProgramAsGivenWithNoShellBetween) {
    Pipe pipe;
    auto child = spawn({"printf", "[%s]\\n", "a b", "$HOME", "*", "'q'", ""}, &pipe);
    ASSERT_TRUE(child);
    EXPECT_EQ(readAll(pipe), "[a b]\n[$HOME]\n[*]\n['q']\n[]\n");
    EXPECT_EQ(child->wait(), 0);
}

TEST(Process, OutputAndErrorShareThePipeAndTheExitStatusComesBack) {
    Pipe pipe;
    auto child = spawn({"sh", "-c", "echo out; echo err >&2; exit 3"}, &pipe);
    ASSERT_TRUE(child);
    EXPECT_EQ(readAll(pipe), "out\nerr\n");
    EXPECT_EQ(child->wait(), 3);
    auto killed = spawn({"sh", "-c", "kill -KILL $$"}, nullptr);
    ASSERT_TRUE(killed);
    EXPECT_EQ(killed->wait(), 128 + SIGKILL);
}

TEST(Process, ChildrenReadTheNullDeviceNotOurInput) {
    // Our standard input becomes a pipe that stays open and silent: a child reading it
    // would never end.
    int silence[2];
    ASSERT_EQ(::pipe(silence), 0);
    const int savedInput = ::dup(STDIN_FILENO);
    ::dup2(silence[0], STDIN_FILENO);
    Pipe pipe;
    auto child = spawn({"cat"}, &pipe);
    ::dup2(savedInput, STDIN_FILENO);
    for (int descriptor : {savedInput, silence[0], silence[1]})
        ::close(descriptor);
    ASSERT_TRUE(child);
    ASSERT_EQ(child->waitFor(5s), 0);
    EXPECT_EQ(readAll(pipe), "");
}

TEST(Process, AMissingProgramIsRefusedWithTheSystemReason) {
    Pipe pipe;
    std::string error;
    EXPECT_EQ(Process::spawn({"tolm-no-such-program", "x"}, &pipe, error), nullptr);
    EXPECT_EQ(error, "Cannot start \"tolm-no-such-program\": No such file or directory");
    char buffer[8];
    EXPECT_EQ(pipe.read(buffer, sizeof(buffer), 5s), Pipe::Ended);  // a reader is not left waiting
}

TEST(Process, DroppingTheHandleEndsARunningChild) {
    auto child = spawn({"sleep", "30"}, nullptr);
    ASSERT_TRUE(child);
    const int pid = child->pid();
    EXPECT_EQ(child->waitFor(100ms), std::nullopt);
    child.reset();
    errno = 0;
    EXPECT_EQ(::kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST(Pipe, ReadGivesUpAfterItsTimeOut) {
    Pipe pipe;
    char buffer[8];
    const auto start = Clock::now();
    EXPECT_EQ(pipe.read(buffer, sizeof(buffer), 200ms), Pipe::TimedOut);
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, 190ms);
    EXPECT_LT(waited, 2s);
}

TEST(Pipe, ReadTakesWhatIsThereThenReportsTheEnd) {
    Pipe pipe;
    ASSERT_EQ(pipe.write("abcdef", 6), 6);
    char buffer[4];
    ASSERT_EQ(pipe.read(buffer, 4, 5s), 4);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    const auto start = Clock::now();
    ASSERT_EQ(pipe.read(buffer, 4, 5s), 2);  // what is there, without waiting for more
    EXPECT_EQ(std::string(buffer, 2), "ef");
    pipe.closeWriteEnd();
    EXPECT_EQ(pipe.read(buffer, 4, 5s), Pipe::Ended);
    EXPECT_EQ(pipe.read(buffer, 4, 5s), Pipe::Ended);
    EXPECT_LT(Clock::now() - start, 1s);
}

}  // namespace
}  // namespace tolm
