#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "hostmap/HostMapTesting.h"
#include "machine/comm/MpiCore.h"
#include "machine/topology/CpuBinder.h"
#include "machine/topology/CpuTopology.h"
#include "machine/topology/MachineHost.h"
#include "machine/topology/ProcessAffinitySummary.h"
#include "support/Failure.h"
#include "topology/BindingTestSupport.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using namespace hostmaptest;
using List = std::vector<unsigned>;

MachineHost& host() {
    return Machine::getHost();
}

TEST(HostMap, EveryProcessIsMappedToItsHostWithItsPid) {
    List pids;
    world().allGather(static_cast<unsigned>(getpid()), pids);
    const auto& map = host().getHostPidMap();
    ASSERT_EQ(map.size(), Machine::nProcesses());
    std::set<std::string> names;
    for (const auto& [name, process] : map) {
        const auto [pid, rank] = process;
        EXPECT_EQ(name, expectedHost(rank)) << "rank " << rank;
        EXPECT_EQ(pid, pids[rank]) << "rank " << rank;
        names.insert(name);
    }
    EXPECT_EQ(host().getNumberHosts(), names.size());
    std::vector<std::string> distinct;
    host().getHostNames(distinct);
    EXPECT_EQ(distinct, std::vector<std::string>(names.begin(), names.end()));
    EXPECT_EQ(host().getHostName(), expectedHost(myRank()));
}

// Waits yield on every process of the job or on none: on all when some host runs more processes
// than it has LPUs (the taskset registrations crowd one LPU) or the environment asks for them.
// A process that yields runs its collectives in the non-blocking form, which never matches
// the blocking form of a process that does not.
TEST(HostMap, WaitsYieldInTheWholeJobWhenSomeHostIsCrowded) {
    int crowded = host().getNumberProcesses() > host().getAvailableMask().count() ? 1 : 0;
    world().allReduce(crowded, QMX_MPI_MAX);
    const char* asked = std::getenv(QMX_MPI_YIELD_WAIT_ENV);
    EXPECT_EQ(MpiCore::yieldingWaits(), crowded == 1 || (asked && std::string(asked) == "1"));
}

TEST(HostMap, TheIntraHostCommunicatorHoldsTheHostsRanksInOrder) {
    const List expected = expectedRanksOnHostOf(myRank());
    ASSERT_TRUE(host().hasIntraHostComm());
    EXPECT_EQ(membersOf(host().getIntraHostComm()), expected);
    EXPECT_EQ(host().getNumberProcesses(), expected.size());
    const auto position = std::find(expected.begin(), expected.end(), myRank());
    EXPECT_EQ(host().getIntraHostRank(), static_cast<unsigned>(position - expected.begin()));
    EXPECT_EQ(host().firstProcessOnHost(), expected.front() == myRank());

    List ranks, pids, otherRanks;
    host().getMpiRanks(ranks);
    host().getPids(pids);
    EXPECT_EQ(ranks, expected);
    EXPECT_EQ(pids.size(), expected.size());
    EXPECT_EQ(pids[host().getIntraHostRank()], static_cast<unsigned>(getpid()));
    host().getMpiRanks(expectedHost(myRank() + 1), otherRanks);
    EXPECT_EQ(otherRanks, expectedRanksOnHostOf(myRank() + 1));
}

TEST(HostMap, TheInterHostCommunicatorJoinsTheFirstProcessOfEachHost) {
    const MachineHost& map = host();
    const bool first = expectedRanksOnHostOf(myRank()).front() == myRank();
    ASSERT_EQ(MachineHostTesting::hasInterHostComm(map), first);
    if (first) {
        List firsts;
        for (unsigned rank = 0; rank < Machine::nProcesses(); ++rank) {
            if (expectedRanksOnHostOf(rank).front() == rank)
                firsts.push_back(rank);
        }
        EXPECT_EQ(membersOf(MachineHostTesting::getInterHostComm(map)), firsts);
    } else {
        EXPECT_EQ(test::failureOf([&] { MachineHostTesting::getInterHostComm(map); }),
                  "Only the first process of a host has the Inter-host Communicator | "
                  "hasInterHostComm()");
    }
}

TEST(HostMap, TheMasterIsOnTheFirstHostOnly) {
    EXPECT_EQ(host().masterOnHost(), expectedHost(myRank()) == expectedHost(0));
}

TEST(HostMap, EachHostDiscoversItsTopologyOnceAndSharesIt) {
    const unsigned discoveries = MachineHost::getNumberTopologyDiscoveries();
    EXPECT_EQ(discoveries, host().firstProcessOnHost() ? 1u : 0u);
    unsigned total = discoveries;
    world().allReduce(total, QMX_MPI_SUM);
    EXPECT_EQ(total, host().getNumberHosts());

    // Every process of a host numbers the LPUs as the host's first process does.
    std::string first = test::describe(host().getCpuTopology());
    host().getIntraHostComm().broadcast(first, 0);
    EXPECT_EQ(test::describe(host().getCpuTopology()), first);
    EXPECT_TRUE(host().getCpuTopology().reliableLpuInformationAvailable());
}

// Whatever the launcher or taskset let the processes use: the topology's allowed LPUs.
TEST(HostMap, AvailableLpusAreTheAllowedOnesAndOversubscriptionCountsTheirCores) {
    const CpuTopology& topology = host().getCpuTopology();
    const AffinityMask expected = topology.getTopologyMask() & topology.getAllowedMask();
    EXPECT_EQ(host().getAvailableMask(), expected);
    EXPECT_EQ(host().wasPinnedAtStart(), !expected.isIncludedIn(startUpAffinity()));
    const auto cores = static_cast<unsigned>(topology.getPhysicalCoresFromMask(expected).size());
    const unsigned processes = host().getNumberProcesses();
    EXPECT_EQ(host().isOverSubscribed(), processes > cores ? processes - cores : 0u);
    EXPECT_EQ(host().hasMoreProcessesThanLpus(), processes > expected.count());
}

TEST(HostMap, HostNamesOfEveryLengthComeBackInRankOrder) {
    const auto nameOf = [](unsigned rank) { return std::string(rank * 3, char('a' + rank)); };
    const std::vector<std::string> names = MachineHost::gatherHostNames(nameOf(myRank()));
    ASSERT_EQ(names.size(), Machine::nProcesses());
    for (unsigned rank = 0; rank < names.size(); ++rank)
        EXPECT_EQ(names[rank], nameOf(rank)) << "rank " << rank;
}

// Puts the process back where the launcher let it run.
class Binding : public ::testing::Test {
  protected:
    void TearDown() override {
        AffinityTesting::setProcessAffinity(host().getCpuTopology(), startUpAffinity());
    }
};

TEST_F(Binding, EachProcessOfAHostGetsItsOwnLpuUnlessOversubscribed) {
    const CpuTopology& topology = host().getCpuTopology();
    const bool overSubscribed = host().isOverSubscribed() != 0;
    const bool bound = host().bindProcesses();
    const AffinityMask now = test::threadAffinityFromSystem();
    if (!everywhere(bound || overSubscribed))
        GTEST_SKIP() << "the system refused to bind a process";
    const std::vector<AffinityMask> all = allGatherMasks(now);
    if (overSubscribed) {
        EXPECT_FALSE(bound);
        EXPECT_EQ(now, startUpAffinity());
        return;
    }
    EXPECT_TRUE(bound);
    const unsigned lpu =
        CpuBinder::selectLpu(host().getIntraHostRank(), host().getNumberProcesses(), topology,
                             host().getAvailableMask(), Machine::Bandwidth);
    EXPECT_EQ(now, topology.getLpuMask(lpu));
    for (const unsigned other : expectedRanksOnHostOf(myRank())) {
        if (other != myRank()) {
            EXPECT_FALSE(now.intersectsWith(all[other])) << "rank " << other;
        }
    }
    AffinityMask hostBound;
    for (const unsigned rank : expectedRanksOnHostOf(myRank()))
        hostBound |= all[rank];
    EXPECT_EQ(host().getHostAffinity(), hostBound);
}

TEST_F(Binding, ProcessesPinnedToTheSameLpuAreReleased) {
    const CpuTopology& topology = host().getCpuTopology();
    const AffinityMask firstLpu = AffinityMask().set(*host().getAvailableMask().begin());
    const bool pinned = AffinityTesting::setProcessAffinity(topology, firstLpu);
    const bool narrower = firstLpu != host().getAvailableMask();
    if (!everywhere(pinned && narrower))
        GTEST_SKIP() << "needs two available LPUs and the right to bind";
    const List ranks = expectedRanksOnHostOf(myRank());

    test::WarningCapture log;
    EXPECT_EQ(host().releaseCollidingProcesses(), ranks.size() > 1);
    const AffinityMask expected = ranks.size() > 1 ? host().getAvailableMask() : firstLpu;
    EXPECT_EQ(test::threadAffinityFromSystem(), expected);
    if (ranks.size() > 1 && host().firstProcessOnHost()) {
        ASSERT_FALSE(log.warnings().empty());
        EXPECT_EQ(log.warnings()[0],
                  "CPU binding collision on host " + host().getHostName() + ": ranks " +
                      std::to_string(ranks[0]) + " and " + std::to_string(ranks[1]) +
                      " are both bound to LPU " + std::to_string(*firstLpu.begin()) +
                      "; they may now run on all available LPUs (" +
                      ProcessAffinitySummary::lpuList(host().getAvailableMask()) + ")");
    } else {
        EXPECT_TRUE(log.warnings().empty());
    }
}

TEST_F(Binding, TheEnvironmentTurnsTheCollisionTestOff) {
    const CpuTopology& topology = host().getCpuTopology();
    const AffinityMask firstLpu = AffinityMask().set(*host().getAvailableMask().begin());
    if (!everywhere(AffinityTesting::setProcessAffinity(topology, firstLpu)))
        GTEST_SKIP() << "the system refused to bind a process";
    setenv("TOLM_MPI_DISABLE_CPU_BIND_COLLISION_TEST", "1", 1);
    Machine::enableCpuBindingContentionTest(false);
    EXPECT_FALSE(Machine::testForCpuBindingCollisions(false));
    unsetenv("TOLM_MPI_DISABLE_CPU_BIND_COLLISION_TEST");
    Machine::enableCpuBindingContentionTest(true);
    EXPECT_EQ(test::threadAffinityFromSystem(), firstLpu);
}

TEST(HostMap, TheMasterGathersEveryProcessInRankOrder) {
    Properties gathered;
    host().gatherAffinityPropertiesToMaster(gathered);
    List pids;
    world().gather(static_cast<unsigned>(getpid()), pids, 0);
    if (!Machine::isMaster()) {
        EXPECT_TRUE(gathered.empty());
        return;
    }
    const auto& processes = gathered.value().at("processes");
    ASSERT_EQ(processes.size(), Machine::nProcesses());
    for (unsigned rank = 0; rank < processes.size(); ++rank) {
        EXPECT_EQ(processes[rank].at("rank"), rank);
        EXPECT_EQ(processes[rank].at("host"), expectedHost(rank));
        EXPECT_EQ(processes[rank].at("pid"), pids[rank]);
    }
    const auto& hosts = gathered.value().at("hosts");
    ASSERT_EQ(hosts.size(), host().getNumberHosts());
    for (const auto& information : hosts) {
        const List ranks = information.at("ranks").get<List>();
        EXPECT_EQ(information.at("host"), expectedHost(ranks.front()));
        EXPECT_EQ(ranks, expectedRanksOnHostOf(ranks.front()));
    }
}

}  // namespace
}  // namespace tolm
