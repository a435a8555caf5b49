#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "machine/core/ExitStatus.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using Code = ExitStatus::ErrorCode;

TEST(ExitStatus, CodesAccumulateAsBitsAndListTheirMessagesInAscendingOrder) {
    struct Case {
        std::vector<Code> codes;
        int exitCode;
        const char* message;
    };
    const Case cases[] = {
        {{}, 0, ""},
        {{ExitStatus::SuccessCode}, 0, ""},
        {{ExitStatus::ServerErrorCode}, 1, ""},  // an exit code, but no message
        {{ExitStatus::NonRecoverableErrorCode, ExitStatus::InvalidArgumentCode},
         34,
         "Invalid server argument,Non-recoverable server error"},
        {{ExitStatus::FileErrorCode, ExitStatus::NonRecoverableErrorCode},
         36,
         "File error,Non-recoverable server error"},
        {{ExitStatus::FloatingPointErrorCode}, 16, "Floating point error during last iteration"},
    };
    for (const Case& c : cases) {
        ExitStatus status;
        for (const Code code : c.codes)
            status += code;
        EXPECT_EQ(int(status), c.exitCode) << c.message;
        EXPECT_EQ(status.hasError(), c.exitCode != 0) << c.message;
        EXPECT_EQ(status.getMessage(), c.message);
    }
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
        EXPECT_EQ(test::errorOf<std::out_of_range>([&] { ExitStatus(static_cast<Code>(code)); }),
                  "invalid bitset<N> position")
            << code;
    }
}

}  // namespace
}  // namespace tolm
