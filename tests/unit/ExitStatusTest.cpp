#include <gtest/gtest.h>

#include <stdexcept>

#include "machine/ExitStatus.h"

namespace tolm {
namespace {

TEST(ExitStatus, EmptyStatusIsSuccess) {
    const ExitStatus status;
    EXPECT_FALSE(status.hasError());
    EXPECT_EQ(int(status), 0);
    EXPECT_EQ(status.getMessage(), "");
    EXPECT_FALSE(ExitStatus(ExitStatus::SuccessCode).hasError());
}

TEST(ExitStatus, CodesAccumulateAsBitsAndListInAscendingOrder) {
    ExitStatus status;
    status += ExitStatus::NonRecoverableErrorCode;
    status += ExitStatus::InvalidArgumentCode;
    EXPECT_EQ(int(status), 34);
    EXPECT_EQ(status.getMessage(), "Invalid server argument,Non-recoverable server error");

    ExitStatus fileAndFatal(ExitStatus::FileErrorCode);
    fileAndFatal += ExitStatus::NonRecoverableErrorCode;
    EXPECT_EQ(int(fileAndFatal), 36);

    ExitStatus floatingPoint(ExitStatus::FloatingPointErrorCode);
    EXPECT_EQ(int(floatingPoint), 16);
    EXPECT_EQ(floatingPoint.getMessage(), "Floating point error during last iteration");
}

TEST(ExitStatus, ServerErrorSetsTheExitCodeButNoMessage) {
    const ExitStatus status(ExitStatus::ServerErrorCode);
    EXPECT_TRUE(status.hasError());
    EXPECT_EQ(int(status), 1);
    EXPECT_EQ(status.getMessage(), "");
}

TEST(ExitStatus, AddingAStatusToItselfChangesNothing) {
    ExitStatus status(ExitStatus::FileErrorCode);
    status += ExitStatus::InvalidArgumentCode;
    status += status;
    EXPECT_EQ(int(status), 6);
    EXPECT_EQ(status.getMessage(), "Invalid server argument,File error");
}

TEST(ExitStatus, CodeOutsideTheTableIsOutOfRange) {
    for (const int code : {7, -1}) {
        try {
            ExitStatus status(static_cast<ExitStatus::ErrorCode>(code));
            FAIL() << "code " << code << " was accepted";
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "invalid bitset<N> position");
        }
    }
}

}  // namespace
}  // namespace tolm
