#include <gtest/gtest.h>

#include <vector>

#include "machine/topology/CpuTopology.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::loadFixture;
using test::numbers;
using List = std::vector<unsigned>;

TEST(LpuSubset, SpreadsOverNumaNodesThenCoresTakingOnlyTheGivenLpus) {
    struct Case {
        const char* fixture;
        List lpus;
        unsigned count;
        bool overNumaNodes, overCores;
        List expected;
    };
    // two-numa-nodes.xml: NUMA nodes {0..3} {4..7}, cores {0,1} {2,3} {4,5} {6,7}.
    const char* const twoNodes = "two-numa-nodes.xml";
    const List all = numbers(0, 7);
    const Case cases[] = {
        {twoNodes, all, 2, true, true, {0, 4}},
        {twoNodes, all, 4, true, true, {0, 2, 4, 6}},
        // A core's second hardware thread only once every core has one.
        {twoNodes, all, 5, true, true, {0, 1, 2, 4, 6}},
        // Over cores alone: the NUMA nodes fill in order.
        {twoNodes, all, 2, false, true, {0, 2}},
        {twoNodes, all, 3, false, true, {0, 2, 4}},
        // Without spreading over cores the input order counts.
        {twoNodes, all, 3, false, false, {0, 1, 2}},
        {twoNodes, all, 3, true, false, {0, 1, 4}},
        {twoNodes, all, 0, true, true, {}},
        {twoNodes, {7, 3, 5, 0}, 20, true, true, {0, 3, 5, 7}},
        {twoNodes, {}, 3, true, true, {}},
        // Node 0 offers cores 0 (LPU 1) and 1 (LPUs 2, 3), node 1 only core 2 (LPU 5).
        {twoNodes, {1, 2, 3, 5}, 2, true, true, {1, 5}},
        {twoNodes, {1, 2, 3, 5}, 3, true, true, {1, 2, 5}},
        // Without reliable NUMA information only the cores are spread over.
        {"numa-pair-per-socket.xml", all, 2, true, true, {0, 2}},
        {"many-lpus.xml", numbers(0, 207), 4, true, true, {0, 52, 104, 156}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(
            loadFixture(c.fixture).getLpuSubset(c.lpus, c.count, c.overNumaNodes, c.overCores),
            c.expected)
            << c.fixture << ": " << c.count << " of " << c.lpus.size() << ", over NUMA nodes "
            << c.overNumaNodes << ", over cores " << c.overCores;
    }
}

TEST(LpuSubset, HalfOfALargeMachineTakesOneLpuPerCore) {
    const CpuTopology topology = loadFixture("many-lpus.xml");
    const List half = topology.getLpuSubset(numbers(0, 207), 104, true, true);
    EXPECT_EQ(half.size(), 104u);
    EXPECT_EQ(topology.getPhysicalCoresFromMask(topology.getLpuMask(half)).size(), 104u);
}

}  // namespace
}  // namespace tolm
