#include <gtest/gtest.h>

#include "CommunicatorTesting.h"
#include "machine/commands/GlobalCondition.h"
#include "machine/commands/GlobalFloatingPointError.h"
#include "machine/commands/GlobalFloatingPointExceptionStatus.h"
#include "machine/commands/IsolatedFpuContext.h"
#include "machine/core/SerialCritical.h"
#include "neo/Error.h"
#include "platform/FpuHandling.h"

namespace tolm {

// The tests' key to the collective floating-point check.
class FpeCheckAccess {
  public:
    static void assertNoException() {
        GlobalFloatingPointExceptionStatus::AssertNoException(AssertNoFpeAccessKey());
    }
};

namespace {

using mpitest::CallCounter;
using mpitest::failureOf;
using mpitest::world;

bool isLast() {
    return world().myRank() == world().size() - 1;
}

TEST(GlobalCondition, ModesAgreeOnEveryRank) {
    EXPECT_TRUE(GlobalCondition(isLast(), GlobalCondition::ON_ANY));
    EXPECT_FALSE(GlobalCondition(false, GlobalCondition::ON_ANY));
    EXPECT_FALSE(GlobalCondition(!isLast(), GlobalCondition::ON_ALL));
    EXPECT_TRUE(GlobalCondition(true, GlobalCondition::ON_ALL));
    EXPECT_TRUE(GlobalCondition(world().myRank() == 0, GlobalCondition::ON_MASTER));
    EXPECT_FALSE(GlobalCondition(world().myRank() != 0, GlobalCondition::ON_MASTER));
    EXPECT_TRUE(GlobalCondition(true, GlobalCondition::ON_ALL_INVARIANT));
}

TEST(GlobalCondition, DifferingInvariantIsCaughtOnSmallJobs) {
    const std::string failure = failureOf(
        [] { GlobalCondition(world().myRank() == 0, GlobalCondition::ON_ALL_INVARIANT); });
    if (world().size() == 1) {
        EXPECT_EQ(failure, "no failure");
    } else if (world().size() < GlobalCondition::invariantCheckLimit) {
        EXPECT_EQ(failure,
                  "Invalid use of ON_ALL_INVARIANT; conditions differ | "
                  "trueCount == 0 || trueCount == Machine::nProcesses()");
    } else {
        CallCounter counter;
        EXPECT_EQ(failureOf([] {
                      GlobalCondition(world().myRank() == 0, GlobalCondition::ON_ALL_INVARIANT);
                  }),
                  "no failure");
        EXPECT_TRUE(counter.calls.empty()) << "large jobs do not check";
    }
}

TEST(GlobalCondition, RefusedInSerialCriticalCode) {
    Machine::SerialCritical serial;
    EXPECT_EQ(failureOf([] { GlobalCondition(true, GlobalCondition::ON_ANY); }),
              "Coding error: GlobalCondition attempted in a serial-critical code section | "
              "! _serialCriticalLock");
}

std::string collectiveFailure() {
    try {
        FpeCheckAccess::assertNoException();
    } catch (const Error& error) {
        EXPECT_TRUE(error.isCollective());
        EXPECT_EQ(error.getSeverity(), 2);
        return error.what();
    }
    return "no failure";
}

TEST(FloatingPointStatus, AnExceptionOnTheLastRankIsRaisedEverywhere) {
    FpuHandling::clearFpeStatus();
    if (isLast()) {
        volatile double zero = 0.0;
        volatile double infinite = 1.0 / zero;
        (void)infinite;
    }
    EXPECT_EQ(collectiveFailure(),
              "A floating point error has occurred. The following error has been logged:\n"
              "  Floating point division by zero, the specific cause cannot be identified\n"
              "Please refer to the troubleshooting section of the User's Guide.");
    EXPECT_EQ(collectiveFailure(), "no failure") << "the check clears what it reported";
}

TEST(FloatingPointStatus, EqualTextsAreOneEntryDifferentTextsAreNumbered) {
    GlobalFloatingPointError::logError("overflow in the solver");
    EXPECT_EQ(collectiveFailure(),
              "A floating point error has occurred. The following error has been logged:\n"
              "  overflow in the solver\n"
              "Please refer to the troubleshooting section of the User's Guide.");
    if (world().size() < 2)
        return;
    GlobalFloatingPointError::logError(isLast() ? "late" : "early");
    EXPECT_EQ(collectiveFailure(),
              "A floating point error has occurred. The following errors have been logged:\n"
              "  1. early\n  2. late\n"
              "Please refer to the troubleshooting section of the User's Guide.");
}

TEST(FloatingPointStatus, IsolatedContextsKeepTheirExceptions) {
    {
        IsolatedFpuContext isolated;
        volatile double zero = 0.0;
        volatile double nan = zero / zero;
        (void)nan;
        FpeCheckAccess::assertNoException();
    }
    EXPECT_TRUE(FpuHandling::isFpeStatusClear());
    EXPECT_EQ(collectiveFailure(), "no failure");
}

}  // namespace
}  // namespace tolm
