#include <gtest/gtest.h>

#include <exception>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>

#include "machine/core/AtExitRegister.h"
#include "machine/core/LauncherEnvironment.h"
#include "machine/core/Machine.h"
#include "machine/core/ParallelPerformanceCritical.h"
#include "machine/core/SerialCritical.h"
#include "machine/core/ServerHost.h"
#include "machine/core/VectorizationCheck.h"
#include "machine/monitor/Timer.h"
#include "neo/InternalError.h"
#include "neo/SingletonCleaner.h"
#include "neo/TolmVersion.h"
#include "platform/Thread.h"
#include "support/Argv.h"
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

// Start-up and take-down of a serial machine in this process, and the start-up checks that
// compare the processes of a job.
TEST(VectorizationCheck, OnlyMixedLevelsGiveTheWarning) {
    using Levels = std::vector<std::string>;
    const std::string warning =
        "Warning: The set of hardware resources has mixed vectorization capabilities. This can "
        "lead to numerical issues (see \"Avoid Using Mixed-Vector Hardware in a Single Parallel "
        "Job\" in the User's Guide). In case of such, the command line flag \"-xbuildopt "
        "standard\" can be passed to force the lowest vectorization level on all hosts for "
        "Orvane TOLM-QMX+ server code. Note that this setting can potentially slow down "
        "execution and does not apply to potential vectorization of third-party libraries, so "
        "further issues might arise.";
    const std::pair<Levels, std::string> cases[] = {
        {{"avx2"}, ""},
        {{"avx2", "avx2", "avx2"}, ""},
        {{"avx2", "avx512f"}, warning},  // two hosts of different processors
        {{"avx2", "avx2", "sse4.2", "avx2"}, warning},
    };
    for (const auto& [levels, expected] : cases)
        EXPECT_EQ(VectorizationCheck::warningFor(levels), expected) << levels.size();
}

// Notes what the machine looked like while the server ran.
class ObservingServerHost : public ServerHost {
  public:
    ExitStatus run(int, char**, const Machine::ArgumentMap&) override {
        const Timer& timer = Machine::getSingleton().getRunTimer();
        runningDuringServer = timer.wallTimerRunning() && timer.cpuTimerRunning();
        wallTimeDuringServer = timer.getWallTime();
        return {};
    }
    static inline bool runningDuringServer = false;
    static inline double wallTimeDuringServer = -1.0;
};

TEST(MachineRun, TheRunTimerRunsWhileTheServerRunsAndStopsAtTheTakeDown) {
    Machine::reset();
    Machine::setServerHost(std::make_unique<ObservingServerHost>());
    test::Argv args{"server", "-s", "-cpubind", "disable"};
    EXPECT_EQ(int(Machine::main(args.argc(), args.argv())), 0);
    EXPECT_TRUE(ObservingServerHost::runningDuringServer);
    const Timer& timer = Machine::getSingleton().getRunTimer();
    EXPECT_FALSE(timer.wallTimerRunning() || timer.cpuTimerRunning());
    EXPECT_GE(timer.getWallTime(), ObservingServerHost::wallTimeDuringServer);
    EXPECT_GE(ObservingServerHost::wallTimeDuringServer, 0.0);
    Machine::reset();
    SingletonCleaner::reset();
}

// The variables of `environment` ("NAME=value NAME=value").
LauncherEnvironment::Lookup lookupIn(const std::string& environment) {
    auto variables = std::make_shared<std::map<std::string, std::string>>();
    std::istringstream words(environment);
    for (std::string word; words >> word;)
        (*variables)[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return [variables](const char* name) -> const char* {
        const auto found = variables->find(name);
        return found == variables->end() ? nullptr : found->second.c_str();
    };
}

struct Detection {
    const char* what;
    const char* environment;
    const char* name;  // null: no launcher found
    const char* driver;
    unsigned int processes;
    unsigned int rank;
};

// The variables are those each launcher set here (Open MPI 4.1's mpirun, MPICH 4.0's Hydra)
// or documents (Slurm's srun).
const Detection detections[] = {
    {"mpirun", "OMPI_COMM_WORLD_SIZE=4 OMPI_COMM_WORLD_RANK=2 PMIX_RANK=2", "Open MPI's mpirun",
     "openmpi4", 4, 2},
    {"hydra", "PMI_SIZE=3 PMI_RANK=1 PMI_FD=6 MPI_LOCALNRANKS=3", "MPICH's mpiexec (Hydra)",
     "mpich2", 3, 1},
    {"mpirunInASlurmStep",
     "OMPI_COMM_WORLD_SIZE=8 OMPI_COMM_WORLD_RANK=0 SLURM_STEP_ID=0 SLURM_NTASKS=1",
     "Open MPI's mpirun", "openmpi4", 8, 0},
    {"hydraInASlurmStep",
     "PMI_SIZE=2 PMI_RANK=0 MPI_LOCALNRANKS=2 SLURM_STEP_ID=3 SLURM_STEP_NUM_TASKS=1",
     "MPICH's mpiexec (Hydra)", "mpich2", 2, 0},
    {"srunWithPmix",
     "SLURM_STEP_ID=0 SLURM_STEP_NUM_TASKS=16 SLURM_NTASKS=32 SLURM_PROCID=5 PMIX_RANK=5",
     "Slurm's srun", "openmpi4", 16, 5},
    {"srunWithPmi2", "SLURM_STEP_ID=1 SLURM_NTASKS=6 SLURM_PROCID=3 PMI_RANK=3 PMI_SIZE=6 PMI_FD=5",
     "Slurm's srun (PMI-2)", "mpich2", 6, 3},
    {"batchScriptOfAnAllocation", "SLURM_JOB_ID=77 SLURM_NTASKS=6", nullptr, "", 0, 0},
    {"countNotANumber", "OMPI_COMM_WORLD_SIZE=four", nullptr, "", 0, 0},
    {"noLauncher", "", nullptr, "", 0, 0},
};

class LauncherDetection : public testing::TestWithParam<Detection> {};

TEST_P(LauncherDetection, FindsTheLauncherItsCountAndTheMatchingDriver) {
    const Detection& expected = GetParam();
    const auto found = LauncherEnvironment::detect(lookupIn(expected.environment));
    if (!expected.name) {
        EXPECT_FALSE(found.has_value()) << found->name;
        return;
    }
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->name, expected.name);
    EXPECT_EQ(found->driver, expected.driver);
    EXPECT_EQ(found->processes, expected.processes);
    EXPECT_EQ(found->rank, expected.rank);
}

INSTANTIATE_TEST_SUITE_P(Launchers, LauncherDetection, testing::ValuesIn(detections),
                         [](const testing::TestParamInfo<Detection>& info) {
                             return std::string(info.param.what);
                         });

TEST(LauncherMismatch, OnlyADifferentWorldSizeIsRefused) {
    const LauncherEnvironment hydra{"MPICH's mpiexec (Hydra)", "mpich2", 4, 0};
    EXPECT_EQ(hydra.mismatch(4), "");
    EXPECT_EQ(hydra.mismatch(1),
              "MPICH's mpiexec (Hydra) started 4 processes, but MPI sees 1: the MPI driver does "
              "not match the launcher. Start the server with \"-mpi mpich2\" (or \"-mpi auto\") "
              "under this launcher.");
}

}  // namespace
}  // namespace tolm
