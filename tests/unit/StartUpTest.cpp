// Start-up and take-down of a serial machine in this process, and the start-up checks that
// compare the processes of a job.
#include <gtest/gtest.h>

#include <memory>

#include "machine/core/Machine.h"
#include "machine/core/ServerHost.h"
#include "machine/core/VectorizationCheck.h"
#include "machine/monitor/Timer.h"
#include "neo/SingletonCleaner.h"
#include "support/Argv.h"

namespace tolm {
namespace {

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

}  // namespace
}  // namespace tolm
