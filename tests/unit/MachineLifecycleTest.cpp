#include <gtest/gtest.h>

#include <exception>
#include <regex>

#include "machine/core/AtExitRegister.h"
#include "machine/core/Machine.h"
#include "machine/core/ParallelPerformanceCritical.h"
#include "machine/core/SerialCritical.h"
#include "neo/InternalError.h"
#include "neo/TolmVersion.h"
#include "platform/Thread.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using Critical = Machine::ParallelPerformanceCritical;

class CriticalSections : public ::testing::Test {
  protected:
    void SetUp() override {
        Machine::reset();
        TolmVersion::setDevelopmentVersion(true);
    }
    void TearDown() override { Machine::reset(); }
};

TEST_F(CriticalSections, NestedGuardsAndExemptionsCount) {
    {
        Critical outer;
        {
            Critical inner;
            EXPECT_EQ(Machine::getPerformanceCriticalLock(), 2u);
            {
                Critical::Exemption exemption;
                EXPECT_EQ(Machine::getPerformanceCriticalLock(), 0u);
                Machine::assertNotParallelPerformanceCritical("inside exemption");
            }
            EXPECT_EQ(Machine::getPerformanceCriticalLock(), 2u);
        }
        EXPECT_EQ(Machine::getPerformanceCriticalLock(), 1u);
    }
    EXPECT_EQ(Machine::getPerformanceCriticalLock(), 0u);
}

TEST_F(CriticalSections, GuardsOnOtherThreadsDoNotCount) {
    Thread worker("worker");
    std::uint32_t seen = 99;
    worker.start([&] {
        Critical guard;
        Machine::SerialCritical serial;
        seen = Machine::getPerformanceCriticalLock() + Machine::getSerialCriticalLock();
    });
    worker.join();
    EXPECT_EQ(seen, 0u);
}

TEST_F(CriticalSections, DestructorAtZeroWarnsAndStaysAtZero) {
    auto* guard = new Critical;
    Critical::Exemption exemption;  // brings the count to 0 under the guard
    testing::internal::CaptureStdout();
    delete guard;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Warning : PerformanceCritical lock out of synch..\n");
    EXPECT_EQ(Machine::getPerformanceCriticalLock(), 0u);
}

TEST_F(CriticalSections, CommunicationInsideFailsInDevelopmentBuilds) {
    Critical guard;
    testing::internal::CaptureStdout();
    const std::string failure = test::failureOf(
        [] { Machine::assertNotParallelPerformanceCritical("Communicator::send"); });
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(failure.ends_with(" | !_performanceCriticalLock")) << failure;
    EXPECT_EQ(printed.rfind("PerformanceCriticalLock detected:\n"
                            "  This message is generated when communication is invoked\n",
                            0),
              0u);
    EXPECT_NE(printed.find("  using existing patterns such as a two-pass Term.\n"),
              std::string::npos);
}

TEST_F(CriticalSections, ReleaseBuildsAndDisabledChecksLetCommunicationPass) {
    Critical guard;
    TolmVersion::setDevelopmentVersion(false);
    EXPECT_NO_THROW(Machine::assertNotParallelPerformanceCritical("release"));
    TolmVersion::setDevelopmentVersion(true);
    Machine::getSingleton().setDevErrorChecking(false);
    EXPECT_NO_THROW(Machine::assertNotParallelPerformanceCritical("checks off"));
}

TEST_F(CriticalSections, TemporaryExemptionsNeedATicketId) {
    EXPECT_TRUE(Critical::TemporaryExemption::isJiraId("QMXP-1234"));
    for (const char* bad : {"", "QMXP-", "QMXP1234", "qmxp-12", "QMXP-12a", "ABCD-12"}) {
        EXPECT_FALSE(Critical::TemporaryExemption::isJiraId(bad)) << bad;
    }
    EXPECT_EQ(test::failureOf([] { Critical::TemporaryExemption exemption("TICKET-1"); }),
              "Badly constructed JIRA ID passed to "
              "ParallelPerformanceCritical::TemporaryExemption! | isJiraId(_jiraId)");
    Critical guard;
    {
        Critical::TemporaryExemption exemption("QMXP-77");
        EXPECT_EQ(Machine::getPerformanceCriticalLock(), 0u);
    }
    EXPECT_EQ(Machine::getPerformanceCriticalLock(), 1u);
    EXPECT_EQ(Critical::TemporaryExemption::exemptions().at("QMXP-77"), 1u);
}

TEST_F(CriticalSections, SerialCriticalFailsInEveryBuild) {
    TolmVersion::setDevelopmentVersion(false);
    Machine::assertNotSerialCritical("outside");
    Machine::SerialCritical guard;
    EXPECT_TRUE(test::failureOf([] {
                    Machine::assertNotSerialCritical("Communicator::broadcast");
                }).starts_with("Communicator::broadcast | "));
}

TEST(MachineState, TimeIsRenderedLikeAsctimeWithoutNewline) {
    const std::regex asctimeForm(R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4})");
    EXPECT_TRUE(std::regex_match(Machine::getTime(), asctimeForm)) << Machine::getTime();
    EXPECT_TRUE(std::regex_match(Machine::getStartTime(), asctimeForm));
}

TEST(MachineExit, SerialAbortExitsWithTheStatusValue) {
    EXPECT_EXIT(Machine::abort(ExitStatus::NonRecoverableErrorCode), testing::ExitedWithCode(32),
                "");
    EXPECT_EXIT(
        {
            Machine::getSingleton().updateExitStatus(ExitStatus::FileErrorCode);
            Machine::abort(ExitStatus::NonRecoverableErrorCode);
        },
        testing::ExitedWithCode(36), "");
}

TEST(MachineExit, TerminateHandlerAddsTheServerErrorCode) {
    EXPECT_EXIT(
        {
            Machine::getSingleton().updateExitStatus(ExitStatus::InvalidArgumentCode);
            Machine::installTerminateHandler();
            std::terminate();
        },
        testing::ExitedWithCode(3), "");
}

void doNothingAtExit() {}

TEST(MachineExit, AtExitRegisterRefusesThe33rdFunction) {
    for (unsigned i = 0; i < AtExitRegister::maxRegistrations; ++i) {
        AtExitRegister::registerFunction(doNothingAtExit);
    }
    EXPECT_EQ(test::failureOf([] { AtExitRegister::registerFunction(doNothingAtExit); }),
              "Exhausted default limit on number of atexit functions | "
              "_nRegistered < maxRegistrations");
    EXPECT_EQ(AtExitRegister::registeredCount(), 32u);
}

}  // namespace
}  // namespace tolm
