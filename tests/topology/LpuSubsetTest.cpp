#include <gtest/gtest.h>

#include <vector>

#include "machine/CpuTopology.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::loadFixture;
using test::numbers;
using List = std::vector<unsigned>;

// Two NUMA nodes {0..3} {4..7}, cores {0,1} {2,3} {4,5} {6,7}.
class LpuSubset : public ::testing::Test {
  protected:
    const CpuTopology topology = loadFixture("two-numa-nodes.xml");
    const List all = numbers(0, 7);
};

TEST_F(LpuSubset, SpreadsOverNumaNodesThenCores) {
    EXPECT_EQ(topology.getLpuSubset(all, 2, true, true), (List{0, 4}));
    EXPECT_EQ(topology.getLpuSubset(all, 4, true, true), (List{0, 2, 4, 6}));
    // A core's second hardware thread only once every core has one.
    EXPECT_EQ(topology.getLpuSubset(all, 5, true, true), (List{0, 1, 2, 4, 6}));
}

TEST_F(LpuSubset, SpreadsOverCoresFillingNumaNodesInOrder) {
    EXPECT_EQ(topology.getLpuSubset(all, 2, false, true), (List{0, 2}));
    EXPECT_EQ(topology.getLpuSubset(all, 3, false, true), (List{0, 2, 4}));
}

TEST_F(LpuSubset, WithoutSpreadingTakesTheInputInOrder) {
    EXPECT_EQ(topology.getLpuSubset(all, 3, false, false), (List{0, 1, 2}));
    EXPECT_EQ(topology.getLpuSubset(all, 3, true, false), (List{0, 1, 4}));
}

TEST_F(LpuSubset, CountBoundsTheResult) {
    EXPECT_EQ(topology.getLpuSubset(all, 0, true, true), List{});
    EXPECT_EQ(topology.getLpuSubset({7, 3, 5, 0}, 20, true, true), (List{0, 3, 5, 7}));
    EXPECT_EQ(topology.getLpuSubset({}, 3, true, true), List{});
}

TEST_F(LpuSubset, OnlyGivenLpusAreTaken) {
    // Node 0 offers cores 0 (LPU 1) and 1 (LPUs 2, 3), node 1 only core 2 (LPU 5).
    EXPECT_EQ(topology.getLpuSubset({1, 2, 3, 5}, 2, true, true), (List{1, 5}));
    EXPECT_EQ(topology.getLpuSubset({1, 2, 3, 5}, 3, true, true), (List{1, 2, 5}));
}

TEST(LpuSubsetFallback, NumaSpreadNeedsNumaInformation) {
    const CpuTopology topology = loadFixture("numa-pair-per-socket.xml");
    ASSERT_FALSE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_EQ(topology.getLpuSubset(numbers(0, 7), 2, true, true), (List{0, 2}));
}

TEST(LpuSubsetLarge, OnePerNumaNodeFirst) {
    const CpuTopology topology = loadFixture("many-lpus.xml");
    EXPECT_EQ(topology.getLpuSubset(numbers(0, 207), 4, true, true), (List{0, 52, 104, 156}));
    EXPECT_EQ(topology.getLpuSubset(numbers(0, 207), 104, true, true).size(), 104u);
    EXPECT_EQ(topology
                  .getPhysicalCoresFromMask(
                      topology.getLpuMask(topology.getLpuSubset(numbers(0, 207), 104, true, true)))
                  .size(),
              104u);
}

}  // namespace
}  // namespace tolm
