#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "machine/core/Machine.h"
#include "machine/topology/CpuBinder.h"
#include "machine/topology/CpuBindingCollisions.h"
#include "machine/topology/CpuTopology.h"
#include "neo/InternalError.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::loadFixture;
using test::maskOf;
using test::numbers;
using List = std::vector<unsigned>;
using Collisions = CpuBindingCollisions;

// The LPU each of `processes` processes of a host chooses, by host rank.
List choices(const CpuTopology& topology, const AffinityMask& available, unsigned processes,
             unsigned policy) {
    List lpus;
    for (unsigned rank = 0; rank < processes; ++rank)
        lpus.push_back(CpuBinder::selectLpu(rank, processes, topology, available, policy));
    return lpus;
}

TEST(CpuBinderChoice, PoliciesSpreadOverTheAvailableCoresAndWrapRound) {
    struct Case {
        AffinityMask available;
        unsigned processes;
        unsigned policy;
        List expected;
    };
    // Two sockets, each one NUMA node of four two-way cores: LPUs 0-7 and 8-15.
    const CpuTopology topology = loadFixture("two-sockets.xml");
    const AffinityMask all = topology.getTopologyMask();
    const Case cases[] = {
        // Bandwidth alternates the NUMA nodes, one core each.
        {all, 4, Machine::Bandwidth, {0, 2, 8, 10}},
        {all, 2, Machine::Bandwidth, {0, 8}},
        // Latency fills the cores of the first NUMA node first.
        {all, 4, Machine::Latency, {0, 2, 4, 6}},
        {all, 5, Machine::Latency, {0, 2, 4, 6, 8}},
        // As a launcher or taskset restricting the host's processes to one NUMA node.
        {maskOf(numbers(0, 7)), 3, Machine::Latency, {0, 2, 4}},
        {maskOf(numbers(8, 15)), 2, Machine::Bandwidth, {8, 10}},
        // A core with one available hardware thread is still a core of its own.
        {maskOf({1, 2, 3}), 2, Machine::Bandwidth, {1, 2}},
        // Fewer LPUs than processes.
        {maskOf({4, 5}), 3, Machine::Bandwidth, {4, 5, 4}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(choices(topology, c.available, c.processes, c.policy), c.expected)
            << c.processes << " processes on " << c.available.toHexString(0) << ", policy "
            << c.policy;
    }
}

// Every process of a host that is not oversubscribed gets a core of its own.
TEST(CpuBinderFixtures, NoTwoProcessesShareACoreWhileCoresSuffice) {
    for (const char* fixture : {"two-sockets.xml", "two-numa-per-socket.xml", "interleaved-smt.xml",
                                "asymmetric-cores.xml", "smt-off.xml", "many-lpus.xml"}) {
        const CpuTopology topology = loadFixture(fixture);
        // The fixture's whole machine (its allowed processors would be this machine's).
        const AffinityMask available = topology.getTopologyMask();
        for (const unsigned policy : {Machine::Bandwidth, Machine::Latency}) {
            const unsigned processes = topology.getNumberPhysicalCores();
            std::set<unsigned> cores;
            for (const unsigned lpu : choices(topology, available, processes, policy)) {
                EXPECT_TRUE(topology.getLpuMask(lpu).isIncludedIn(available)) << fixture;
                cores.insert(topology.getPhysicalCoreForLpu(lpu));
            }
            EXPECT_EQ(cores.size(), processes) << fixture << " policy " << policy;
        }
    }
}

// LPU numbers and processor numbers differ here: core 0 holds processors 0 and 4.
TEST(CpuBinderFixtures, ChoicesAreLpuNumbersOfTheTopology) {
    const CpuTopology topology = loadFixture("interleaved-smt.xml");
    const List lpus = choices(topology, topology.getTopologyMask(), 2, Machine::Latency);
    ASSERT_EQ(lpus, (List{0, 2}));
    EXPECT_EQ(topology.getLpuMask(lpus[1]), maskOf({1}));
    // Processors 1 and 5 (core 1) available: the choice is LPU 2 or 3, processor 1 or 5.
    EXPECT_EQ(CpuBinder::selectLpu(0, 1, topology, maskOf({1, 5}), Machine::Bandwidth), 2u);
}

TEST(CpuBinderPolicy, UnknownPoliciesAreInternalErrors) {
    const CpuTopology topology = loadFixture("two-sockets.xml");
    const AffinityMask all = topology.getTopologyMask();
    for (const unsigned policy : {3u, 17u}) {
        try {
            CpuBinder::bind(0, 1, topology, all, policy);
            ADD_FAILURE() << "policy " << policy << " was accepted";
        } catch (const InternalError& error) {
            EXPECT_STREQ(error.what(), "Invalid CpuBindingPolicy specified");
            EXPECT_EQ(error.getCondition(), "false");
            EXPECT_NE(error.getFile().find("CpuBinder"), std::string::npos) << error.getFile();
        }
    }
    // Least load stays where the process runs: there is no LPU to choose.
    EXPECT_THROW(CpuBinder::selectLpu(0, 1, topology, all, Machine::LeastLoad), InternalError);
}

TEST(CpuBinderThreads, ThreadsSpreadOverCoresAndWrapRound) {
    const CpuTopology topology = loadFixture("two-sockets.xml");
    EXPECT_EQ(CpuBinder::selectThreadLpus(2, topology, maskOf(numbers(0, 3))), (List{0, 2}));
    EXPECT_EQ(CpuBinder::selectThreadLpus(2, topology, maskOf({6, 7, 8})), (List{6, 8}));
    EXPECT_EQ(CpuBinder::selectThreadLpus(3, topology, maskOf({6, 8})), (List{6, 8, 6}));
    EXPECT_EQ(CpuBinder::selectThreadLpus(0, topology, topology.getTopologyMask()), List{});
    EXPECT_EQ(CpuBinder::selectThreadLpus(2, topology, AffinityMask()), List{});
}

const AffinityMask available = maskOf({0, 1, 2, 3});

TEST(CpuBindingCollisions, OnlyAProcessThatMayNotRunEverywhereIsPinned) {
    EXPECT_TRUE(Collisions::isPinned(maskOf({2}), available));
    EXPECT_TRUE(Collisions::isPinned(maskOf({0, 1, 2}), available));
    EXPECT_FALSE(Collisions::isPinned(available, available));
    EXPECT_FALSE(Collisions::isPinned(maskOf({0, 1, 2, 3, 7}), available));
    // An affinity that could not be read pins nothing.
    EXPECT_FALSE(Collisions::isPinned(AffinityMask(), available));
}

TEST(CpuBindingCollisions, PinnedProcessesSharingLpusCollide) {
    const auto found = Collisions::find(
        {maskOf({0}), maskOf({1}), maskOf({0, 1}), available, maskOf({3})}, available);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(std::make_pair(found[0].first, found[0].second), std::make_pair(0u, 2u));
    EXPECT_EQ(found[0].shared, maskOf({0}));
    EXPECT_EQ(std::make_pair(found[1].first, found[1].second), std::make_pair(1u, 2u));
    EXPECT_EQ(found[1].shared, maskOf({1}));
    EXPECT_TRUE(Collisions::find({maskOf({0}), maskOf({1}), maskOf({2})}, available).empty());
    EXPECT_TRUE(Collisions::find({available, available, maskOf({2})}, available).empty());
}

TEST(CpuBindingCollisions, PinnedLpusAreTheUnionOfPinnedMasksOnly) {
    EXPECT_EQ(Collisions::pinnedLpus({maskOf({0}), available, maskOf({2, 3})}, available),
              maskOf({0, 2, 3}));
    EXPECT_TRUE(Collisions::pinnedLpus({available}, available).empty());
}

}  // namespace
}  // namespace tolm
