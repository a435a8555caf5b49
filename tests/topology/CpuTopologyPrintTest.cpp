#include <gtest/gtest.h>

#include <string>

#include "machine/topology/CpuTopology.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::loadFixture;
using test::maskOf;

TEST(CpuTopologyPrint, SocketsEqualToNumaNodesShareTheirLines) {
    const CpuTopology topology = loadFixture("two-sockets.xml");
    EXPECT_EQ(topology.print(true, true, false, false, 2, 100),
              "  S00 = N00 : [00+01 02+03 04+05 06+07]\n"
              "  S01 = N01 : [08+09 10+11 12+13 14+15]\n");
    EXPECT_EQ(topology.print(false, true, false, false, 0, 100),
              "N00 : [00+01 02+03 04+05 06+07]\n"
              "N01 : [08+09 10+11 12+13 14+15]\n");
}

TEST(CpuTopologyPrint, SocketsAndNumaNodesApartGetTheirOwnLines) {
    const CpuTopology topology = loadFixture("two-numa-per-socket.xml");
    EXPECT_EQ(topology.print(true, true, false, false, 1, 100),
              " S00 : [00+01 02+03 04+05 06+07]\n"
              " S01 : [08+09 10+11 12+13 14+15]\n"
              " N00 : [00+01 02+03]\n"
              " N01 : [04+05 06+07]\n"
              " N02 : [08+09 10+11]\n"
              " N03 : [12+13 14+15]\n");
}

TEST(CpuTopologyPrint, CoreLinesOnlyWithSmt) {
    EXPECT_EQ(loadFixture("mixed-smt-cores.xml").print(false, false, true, false, 0, 100),
              "C00 : [00+01]\n"
              "C01 : [02]\n");
    EXPECT_EQ(loadFixture("smt-off.xml").print(false, false, true, false, 0, 100), "");
}

TEST(CpuTopologyPrint, Summary) {
    EXPECT_EQ(loadFixture("two-numa-per-socket.xml").print(false, false, false, true, 2, 100),
              "  LPUs = 16, physical cores = 8, NUMA nodes = 4, sockets = 2\n"
              "  Sockets are equal to NUMA nodes: no\n"
              "  Simultaneous multithreading (SMT): yes\n"
              "  Symmetric: yes\n"
              "  Information obtained via hwloc: LPUs = yes, physical cores = yes, NUMA nodes = "
              "yes, sockets = yes\n");
    EXPECT_EQ(loadFixture("damaged-no-pus.xml").print(true, true, true, true, 0, 100),
              "S00 = N00 : [00]\n"
              "LPUs = 1, physical cores = 1, NUMA nodes = 1, sockets = 1\n"
              "Sockets are equal to NUMA nodes: yes\n"
              "Simultaneous multithreading (SMT): no\n"
              "Symmetric: yes\n"
              "Information obtained via hwloc: LPUs = no, physical cores = no, NUMA nodes = no, "
              "sockets = no\n");
}

TEST(CpuTopologyPrint, NumbersArePaddedToTheDigitsOfTheirLevel) {
    EXPECT_EQ(loadFixture("smt-off.xml").print(true, false, false, false, 0, 100),
              "S00 : [00 01 02 03]\n"
              "S01 : [04 05 06 07]\n");
    EXPECT_EQ(loadFixture("hundred-and-one-lpus.xml").print(true, false, false, false, 0, 6),
              "S00 : [000 001 002 ... 098 099 100]\n");
    const std::string many = loadFixture("many-lpus.xml").print(false, true, true, false, 0, 4);
    EXPECT_NE(many.find("N03 : [156+157 ... 206+207]\n"), std::string::npos) << many;
    EXPECT_NE(many.find("C103 : [206+207]\n"), std::string::npos) << many;
}

TEST(CpuTopologyPrint, LongListsKeepTheirEndsWithinMaxItems) {
    const CpuTopology topology = loadFixture("smt-off.xml");
    EXPECT_EQ(topology.print(true, false, false, false, 0, 4),
              "S00 : [00 01 02 03]\nS01 : [04 05 06 07]\n");
    EXPECT_EQ(topology.print(true, false, false, false, 0, 3),
              "S00 : [00 01 ... 03]\nS01 : [04 05 ... 07]\n");
    // Fewer than two items count as two.
    EXPECT_EQ(topology.print(true, false, false, false, 0, 0),
              "S00 : [00 ... 03]\nS01 : [04 ... 07]\n");
    // Two cores are never shortened, however many threads they hold.
    EXPECT_EQ(loadFixture("two-numa-nodes.xml").print(false, true, false, false, 0, 2),
              "N00 : [00+01 02+03]\nN01 : [04+05 06+07]\n");
}

TEST(CpuTopologyPrint, MasksNameTheLargestUnitsTheyCover) {
    const CpuTopology topology = loadFixture("two-sockets.xml");
    EXPECT_EQ(topology.printAffinityMask(topology.getTopologyMask(), 10), "{S00-S01}");
    EXPECT_EQ(topology.printAffinityMask(topology.getSocketMask(0) | maskOf({8, 9, 11}), 10),
              "{S00 C04 11}");
    EXPECT_EQ(topology.printAffinityMask(maskOf({2, 3, 4, 5, 6, 7, 9}), 10), "{C01-C03 09}");
    EXPECT_EQ(topology.printAffinityMask(maskOf({1, 3, 4}), 10), "{01 03-04}");
    EXPECT_EQ(topology.printAffinityMask(AffinityMask(), 10), "{}");
    EXPECT_EQ(topology.printAffinityMask(maskOf({1, 16}), 10), "{0x10002}");
    EXPECT_EQ(topology.printAffinityMask(maskOf({0, 2, 4, 6, 8, 10, 12, 14}), 4),
              "{00 02 ... 12 14}");

    const CpuTopology numaNodes = loadFixture("two-numa-per-socket.xml");
    EXPECT_EQ(numaNodes.printAffinityMask(numaNodes.getNumaMask({1, 2}), 10), "{N01-N02}");
    // Without SMT a core is just its LPU.
    EXPECT_EQ(loadFixture("smt-off.xml").printAffinityMask(maskOf({0, 1}), 10), "{00-01}");
    // LPU numbers, not processor indices.
    EXPECT_EQ(loadFixture("interleaved-smt.xml").printAffinityMask(maskOf({4}), 10), "{01}");
    EXPECT_EQ(loadFixture("damaged-no-pus.xml").printAffinityMask(maskOf({0}), 10), "{0x1}");
}

}  // namespace
}  // namespace tolm
