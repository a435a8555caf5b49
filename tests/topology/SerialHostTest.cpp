#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <future>
#include <string>
#include <thread>
#include <vector>

#include "machine/core/Machine.h"
#include "machine/topology/CpuBinder.h"
#include "machine/topology/CpuTopology.h"
#include "machine/topology/MachineHost.h"
#include "machine/topology/ProcessAffinitySummary.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "support/Argv.h"
#include "support/Failure.h"
#include "topology/BindingTestSupport.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::failureOf;
using test::maskOf;
using test::threadAffinityFromSystem;
using List = std::vector<unsigned>;

void startSerialMachine(std::initializer_list<std::string> options) {
    test::Argv argv(options);
    Machine::ArgumentMap consumed;
    Machine::startCommunicators(argv.argc(), argv.argv(), consumed);
    test::parseCommonOptions(options);
}

// Other servers are looked for on this host: in a UTS namespace of its own, the test sees
// only the processes it starts, not the other test processes of this program running beside it.
bool inHostOfItsOwn() {
    static const bool entered = unshare(CLONE_NEWUTS) == 0;
    return entered;
}

#define REQUIRE_HOST_OF_ITS_OWN()                                         \
    do {                                                                  \
        if (!inHostOfItsOwn())                                            \
            GTEST_SKIP() << "needs a UTS namespace of its own (unshare)"; \
    } while (false)

TEST(SerialHostLifecycle, TheHostExistsFromStartToStop) {
    Machine::reset();
    EXPECT_EQ(failureOf([] { Machine::getHost(); }), "Host is not enabled | _host");
    const unsigned discoveries = MachineHost::getNumberTopologyDiscoveries();
    startSerialMachine({"server", "-s"});
    EXPECT_EQ(MachineHost::getNumberTopologyDiscoveries(), discoveries + 1);
    Machine::stopCommunicators();
    EXPECT_EQ(failureOf([] { Machine::getHost(); }), "Host is not enabled | _host");
    Machine::reset();
}

class SerialHost : public test::RealBinding {
  protected:
    void SetUp() override {
        Machine::reset();
        RealBinding::SetUp();
    }
    void TearDown() override {
        Machine::stopCommunicators();
        Machine::reset();
    }
    // A serial machine allowed two LPUs and bound by the machine to one of them.
    MachineHost& startBoundOnOneOfTwoLpus() {
        test::setThreadAffinityInSystem(maskOf({lpus[0], lpus[1]}));
        startSerialMachine({"server", "-s"});
        EXPECT_TRUE(Machine::getHost().bindProcesses());
        return Machine::getHost();
    }
};

TEST_F(SerialHost, OneHostOneProcessAndNoCommunicators) {
    REQUIRE_HOST_OF_ITS_OWN();
    startSerialMachine({"server", "-s"});
    const MachineHost& host = Machine::getHost();
    const auto pid = static_cast<unsigned>(getpid());
    EXPECT_EQ(host.getHostName(), Platform::process().hostName());
    EXPECT_EQ(host.getNumberHosts(), 1u);
    EXPECT_EQ(host.getNumberProcesses(), 1u);
    EXPECT_EQ(host.getHostPidMap(),
              (MachineHost::HostPidMap{{host.getHostName(), std::make_pair(pid, 0u)}}));
    List pids, ranks;
    host.getPids(pids);
    host.getMpiRanks(ranks);
    EXPECT_EQ(pids, List{pid});
    EXPECT_EQ(ranks, List{0});
    EXPECT_TRUE(host.firstProcessOnHost() && host.masterOnHost());
    EXPECT_EQ(host.getIntraHostRank(), 0u);
    EXPECT_FALSE(host.hasIntraHostComm());
    EXPECT_FALSE(MachineHostTesting::hasInterHostComm(host));
    EXPECT_EQ(failureOf([&] { host.getIntraHostComm(); }),
              "Cannot access Intra-host Communicator in serial | hasIntraHostComm()");
    EXPECT_EQ(failureOf([&] { MachineHostTesting::getInterHostComm(host); }),
              "Cannot access Intra-host Communicator in serial | hasInterHostComm()");
    EXPECT_FALSE(host.hasMultipleServersRunning());
}

TEST_F(SerialHost, BindsToAnLpuAndReportsIt) {
    startSerialMachine({"server", "-s"});
    MachineHost& host = Machine::getHost();
    EXPECT_EQ(host.isOverSubscribed(), 0u);
    ASSERT_TRUE(host.bindProcesses());
    EXPECT_TRUE(host.isBoundByMachine());
    const AffinityMask bound = threadAffinityFromSystem();
    ASSERT_EQ(bound.count(), 1u);
    EXPECT_TRUE(bound.isIncludedIn(host.getAvailableMask()));

    testing::internal::CaptureStdout();
    host.printProcessAffinitySummary(true, false);
    const unsigned lpu = *bound.begin();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Process binding (policy bandwidth): 1 process on 1 host\n[" + host.getHostName() +
                  ":" + std::to_string(getpid()) + "] rank 0 bound to LPU " + std::to_string(lpu) +
                  ": " + ProcessAffinitySummary::picture(host.getCpuTopology(), bound) + "\n");
    const Properties::Value& report = host.getStartUpBinding().value();
    EXPECT_EQ(report.at("processes").at(0).at("lpus"), List{lpu});
    EXPECT_EQ(report.at("hosts").at(0).at("host"), host.getHostName());
}

// As under `taskset -c`: the process starts on one of the processors, yet the host offers all
// that its topology allows, and the policy chooses among them.
TEST_F(SerialHost, ARestrictedProcessIsBoundByThePolicyOverTheAllowedLpus) {
    test::setThreadAffinityInSystem(only(lpus[1]));
    startSerialMachine({"server", "-s", "-cpubind", "latency"});
    MachineHost& host = Machine::getHost();
    const CpuTopology& topology = host.getCpuTopology();
    EXPECT_EQ(host.getAvailableMask(), topology.getTopologyMask() & topology.getAllowedMask());
    EXPECT_TRUE(host.wasPinnedAtStart());
    EXPECT_EQ(host.isOverSubscribed(), 0u);
    ASSERT_TRUE(host.bindProcesses());
    const unsigned lpu =
        CpuBinder::selectLpu(0, 1, topology, host.getAvailableMask(), Machine::Latency);
    EXPECT_EQ(threadAffinityFromSystem(), only(lpu));
}

TEST_F(SerialHost, LeastLoadStaysOnTheLpuTheProcessRunsOn) {
    startSerialMachine({"server", "-s", "-cpubind", "leastload"});
    ASSERT_TRUE(Machine::getHost().bindProcesses());
    const AffinityMask bound = threadAffinityFromSystem();
    EXPECT_EQ(bound.count(), 1u);
    EXPECT_EQ(bound, maskOf({static_cast<unsigned>(sched_getcpu())}));
}

TEST_F(SerialHost, EveryThreadFollowsTheMainThread) {
    startSerialMachine({"server", "-s", "-cpubind", "disable"});
    std::promise<void> release;
    std::thread helper([done = release.get_future()]() mutable { done.wait(); });
    test::setThreadAffinityInSystem(only(lpus[1]));  // as a launcher binding the main thread
    EXPECT_TRUE(Machine::conformProcessAffinityToMainThreadAffinity());
    cpu_set_t set;
    CPU_ZERO(&set);
    ASSERT_EQ(pthread_getaffinity_np(helper.native_handle(), sizeof set, &set), 0);
    EXPECT_EQ(CPU_COUNT(&set), 1);
    EXPECT_TRUE(CPU_ISSET(lpus[1], &set));
    release.set_value();
    helper.join();
}

TEST_F(SerialHost, ContentionWithAnotherServerMovesThisOneToAFreeLpu) {
    REQUIRE_HOST_OF_ITS_OWN();
    MachineHost& host = startBoundOnOneOfTwoLpus();
    const AffinityMask mine = threadAffinityFromSystem();
    const test::OtherServer other(mine);
    EXPECT_TRUE(host.hasMultipleServersRunning());
    {
        test::WarningCapture log;
        EXPECT_TRUE(host.hasCpuContention(true));
        ASSERT_EQ(log.warnings().size(), 1u);
        EXPECT_EQ(log.warnings()[0], "CPU contention on host " + host.getHostName() +
                                         ": other processes of " + Machine::getExecutableName() +
                                         " are bound to " + ProcessAffinitySummary::lpuList(mine) +
                                         ", where processes of this job are bound (process ids " +
                                         std::to_string(other.pid()) + ")");
    }
    test::WarningCapture quiet;
    EXPECT_TRUE(host.resolveCpuContention(false));
    const AffinityMask moved = threadAffinityFromSystem();
    EXPECT_EQ(moved.count(), 1u);
    EXPECT_FALSE(moved.intersectsWith(mine));
    EXPECT_FALSE(host.hasCpuContention(false));
}

TEST_F(SerialHost, WithNoFreeCoreContentionLetsThisServerRunAnywhere) {
    REQUIRE_HOST_OF_ITS_OWN();
    MachineHost& host = startBoundOnOneOfTwoLpus();
    const test::OtherServer first(only(lpus[0]));
    const test::OtherServer second(only(lpus[1]));
    test::WarningCapture log;
    ASSERT_TRUE(host.hasCpuContention(false));
    EXPECT_TRUE(host.resolveCpuContention(true));
    EXPECT_EQ(threadAffinityFromSystem(), host.getAvailableMask());
    ASSERT_EQ(log.warnings().size(), 2u);
    EXPECT_EQ(log.warnings()[1], "CPU contention on host " + host.getHostName() +
                                     ": too few free physical cores to rebind 1 process; they "
                                     "may run on all available LPUs (" +
                                     ProcessAffinitySummary::lpuList(host.getAvailableMask()) +
                                     ")");
    // Unpinned, this server contends with nobody.
    EXPECT_FALSE(host.hasCpuContention(false));
}

}  // namespace
}  // namespace tolm
