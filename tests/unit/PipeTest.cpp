#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "platform/Pipe.h"

namespace tolm {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

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
