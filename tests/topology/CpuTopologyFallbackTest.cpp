#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "machine/topology/CpuTopology.h"
#include "support/Failure.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::extractionWarning;
using test::loadFixture;
using test::maskOf;
using test::numbers;
using test::readFixture;
using List = std::vector<unsigned>;
using Warnings = std::vector<std::string>;

// Loads a fixture and checks that exactly `message` was logged while building it.
CpuTopology loadWarning(const std::string& name, const std::string& message) {
    test::WarningCapture log;
    CpuTopology topology = loadFixture(name);
    EXPECT_EQ(log.warnings(), Warnings{extractionWarning(message)}) << name;
    return topology;
}

TEST(CpuTopologyFallback, HealthyMachinesLogNothing) {
    for (const char* name :
         {"two-sockets.xml", "two-numa-per-socket.xml", "two-numa-nodes.xml", "smt-off.xml",
          "many-lpus.xml", "hundred-and-one-lpus.xml", "single-core.xml", "no-cores.xml",
          "interleaved-smt.xml", "asymmetric-cores.xml", "mixed-smt-cores.xml"}) {
        test::WarningCapture log;
        const CpuTopology topology = loadFixture(name);
        EXPECT_EQ(log.warnings(), Warnings{}) << name;
        EXPECT_TRUE(topology.reliableLpuInformationAvailable()) << name;
    }
}

// Without an hwloc topology every level is flat and every mask empty.
void expectNoTopology(const CpuTopology& topology) {
    EXPECT_EQ(topology.getNumberLpus(), 1u);
    EXPECT_EQ(topology.getNumberPhysicalCores(), 1u);
    EXPECT_EQ(topology.getNumberNumaNodes(), 1u);
    EXPECT_EQ(topology.getNumberSockets(), 1u);
    EXPECT_FALSE(topology.reliableLpuInformationAvailable());
    EXPECT_FALSE(topology.reliablePhysicalCoreInformationAvailable());
    EXPECT_FALSE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_FALSE(topology.reliableSocketInformationAvailable());
    EXPECT_TRUE(topology.getLpuMask(0).empty());
    EXPECT_TRUE(topology.getSocketMask(0).empty());
    EXPECT_TRUE(topology.getTopologyMask().empty());
    EXPECT_TRUE(topology.getAllowedMask().empty());
    EXPECT_TRUE(topology.restrictToAvailableResources(maskOf({0, 1})).empty());
    EXPECT_TRUE(topology.getLpusFromMask(maskOf({0})).empty());
    EXPECT_TRUE(topology.getNumaNodesFromMask(maskOf({0})).empty());
    EXPECT_EQ(topology.getLpusForNumaNode(0), (List{0}));
    EXPECT_EQ(topology.toString(), "");
    EXPECT_TRUE(test::failureOf([&] { topology.getLpuMask(1); }).ends_with(" | lpu == 0u"));
}

TEST(CpuTopologyFallback, NoLpusDropsTheTopology) {
    const CpuTopology topology = loadWarning(
        "damaged-no-pus.xml",
        "The hwloc topology data structure was successfully initialized, but no LPUs were "
        "detected.");
    expectNoTopology(topology);
}

TEST(CpuTopologyFallback, TextThatHwlocCannotLoadGivesNoTopology) {
    for (const std::string& text :
         {readFixture("damaged-truncated.xml"), std::string("not an XML topology")}) {
        test::WarningCapture log;
        const CpuTopology topology(text);
        EXPECT_EQ(log.warnings(), Warnings{});
        expectNoTopology(topology);
    }
}

// Defects that crash hwloc's loader (or have it allocate half a gigabyte): the text is refused
// before hwloc sees it, with a warning naming the defect.
TEST(CpuTopologyFallback, XmlThatHwlocWouldNotSurviveGivesNoTopology) {
    const std::pair<const char*, const char*> cases[] = {
        {"damaged-pu-without-complete-cpuset.xml",
         "the PU object with os_index 3 has a cpuset but no complete_cpuset"},
        {"damaged-root-without-complete-cpuset.xml",
         "the Machine object with os_index 0 has a cpuset but no complete_cpuset"},
        {"damaged-numa-without-complete-nodeset.xml",
         "the NUMANode object with os_index 0 has a nodeset but no complete_nodeset"},
        {"damaged-root-without-complete-nodeset.xml",
         "the Machine object with os_index 0 has a nodeset but no complete_nodeset"},
        {"damaged-cpuset-outside-complete-cpuset.xml",
         "the Machine object with os_index 0 has a cpuset outside its complete_cpuset"},
        {"damaged-unreadable-complete-cpuset.xml",
         "the Machine object with os_index 0 has complete_cpuset \"lo\", which is no set"},
        {"damaged-empty-allowed-nodeset.xml",
         "the Machine object has allowed_nodeset \"\", which is no set"},
        {"damaged-hwloc1-numa-without-nodeset.xml",
         "it is not in the format of hwloc 2 or later (<topology version=\"2.0\">)"},
        {"damaged-doctype-without-dtd.xml", "its document type declaration names no DTD file"},
        {"damaged-numa-without-os-index.xml", "the NUMANode object has no os_index below 1048576"},
        {"damaged-pu-with-huge-os-index.xml",
         "the PU object with os_index 4000000000 has no os_index below 1048576"}};
    for (const auto& [name, defect] : cases) {
        test::WarningCapture log;
        const CpuTopology topology = loadFixture(name);
        EXPECT_EQ(log.warnings(),
                  Warnings{std::string("CpuTopology::Impl::load: The hwloc XML topology is "
                                       "damaged (") +
                           defect + "); no topology is loaded."})
            << name;
        expectNoTopology(topology);
    }
}

// hwloc's XML plugin sets libxml2's error handler to a function of its own and is unloaded with
// the topology; bytes that UTF-7 cannot decode reach that handler on a later read.
TEST(CpuTopologyFallback, UndecodableTextAfterAnotherTopologyGivesNoTopology) {
    (void)loadFixture("single-core.xml");
    test::WarningCapture log;
    expectNoTopology(loadFixture("damaged-utf7-bytes.xml"));
    EXPECT_EQ(log.warnings(), Warnings{});
}

TEST(CpuTopologyFallback, CoresOutOfOrderFallBackToOneCorePerLpu) {
    const CpuTopology topology = loadWarning(
        "damaged-core-order.xml",
        "Physical cores were detected, but the expected core - or nested LPU - ordering is "
        "wrong.");
    EXPECT_FALSE(topology.reliablePhysicalCoreInformationAvailable());
    EXPECT_EQ(topology.getNumberPhysicalCores(), 8u);
    EXPECT_FALSE(topology.usesSMT());
    EXPECT_EQ(topology.getLpusForPhysicalCore(3), (List{3}));
    // The other levels survive and answer in terms of the flat cores.
    EXPECT_TRUE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_TRUE(topology.reliableSocketInformationAvailable());
    EXPECT_EQ(topology.getPhysicalCoresForSocket(1), numbers(4, 7));
    EXPECT_EQ(topology.getNumaNodeForPhysicalCore(5), 1u);
}

TEST(CpuTopologyFallback, LpusOutsideEveryCoreDropTheCores) {
    const CpuTopology topology =
        loadWarning("damaged-core-mapping.xml", "Invalid LPU to physical core mapping detected.");
    EXPECT_FALSE(topology.reliablePhysicalCoreInformationAvailable());
    EXPECT_EQ(topology.getNumberPhysicalCores(), 8u);
    EXPECT_EQ(topology.getPhysicalCoreForLpu(6), 6u);
    EXPECT_EQ(topology.getPhysicalCoreMask(6), topology.getLpuMask(6));
}

TEST(CpuTopologyFallback, NumaNodesSharingTheirLpusAreDropped) {
    const CpuTopology topology = loadWarning(
        "numa-pair-per-socket.xml",
        "NUMA nodes were detected, but the expected NUMA node - or nested LPU - ordering is "
        "wrong.");
    EXPECT_FALSE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_EQ(topology.getNumberNumaNodes(), 1u);
    EXPECT_EQ(topology.getLpusForNumaNode(0), numbers(0, 7));
    EXPECT_EQ(topology.getPhysicalCoresForNumaNode(0), numbers(0, 3));
    EXPECT_EQ(topology.getNumaMask(0), topology.getTopologyMask());
    EXPECT_EQ(topology.getNumaNodeForPhysicalCore(3), 0u);
    EXPECT_TRUE(topology.reliableSocketInformationAvailable());
    EXPECT_FALSE(topology.socketsEqualToNumaNodes());
}

TEST(CpuTopologyFallback, LpusOutsideEveryNumaNodeDropTheNumaNodes) {
    const CpuTopology topology =
        loadWarning("damaged-numa-mapping.xml", "Invalid LPU to NUMA node mapping detected.");
    EXPECT_FALSE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_EQ(topology.getNumberNumaNodes(), 1u);
    EXPECT_EQ(topology.getNumaNodeForLpu(7), 0u);
    EXPECT_EQ(topology.getNumaNodesFromMask(maskOf({5})), (List{0}));
    EXPECT_TRUE(topology.getNumaNodesFromMask(maskOf({9})).empty());
}

// NUMA nodes smaller than a core keep their LPUs; their cores come from their LPUs' cores.
TEST(CpuTopologyFallback, NumaNodesWithoutWholeCoresKeepOnlyTheirLpus) {
    const CpuTopology topology = loadWarning(
        "numa-inside-cores.xml",
        "Either no physical cores were detected for the NUMA nodes or the expectednested "
        "physical core ordering is wrong.");
    EXPECT_TRUE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_EQ(topology.getNumberNumaNodes(), 4u);
    EXPECT_EQ(topology.getNumberPhysicalCores(), 2u);
    EXPECT_EQ(topology.getLpusForNumaNode(1), (List{2, 3}));
    EXPECT_EQ(topology.getPhysicalCoresForNumaNode(1), (List{0}));
    EXPECT_EQ(topology.getNumberPhysicalCoresForNumaNode(3), 1u);
    EXPECT_EQ(topology.getNumaNodeForPhysicalCore(1), 2u);
}

TEST(CpuTopologyFallback, SocketsWithoutWholeCoresKeepOnlyTheirLpus) {
    const CpuTopology topology = loadWarning(
        "sockets-inside-cores.xml",
        "Either no physical cores were detected for the sockets or the expectednested physical "
        "core ordering is wrong.");
    EXPECT_TRUE(topology.reliableSocketInformationAvailable());
    EXPECT_EQ(topology.getNumberSockets(), 4u);
    EXPECT_EQ(topology.getLpusForSocket(2), (List{4, 5}));
    EXPECT_EQ(topology.getPhysicalCoresForSocket(2), (List{1}));
    EXPECT_EQ(topology.getSocketForPhysicalCore(1), 2u);
}

TEST(CpuTopologyFallback, SocketsOutOfOrderFallBackToOneSocket) {
    const CpuTopology topology = loadWarning(
        "damaged-socket-order.xml",
        "Sockets were detected, but the expected socket - or nested LPU - ordering is wrong.");
    EXPECT_FALSE(topology.reliableSocketInformationAvailable());
    EXPECT_EQ(topology.getNumberSockets(), 1u);
    EXPECT_EQ(topology.getLpusForSocket(0), numbers(0, 7));
    EXPECT_EQ(topology.getPhysicalCoresForSocket(0), numbers(0, 3));
    EXPECT_EQ(topology.getSocketForLpu(6), 0u);
    EXPECT_EQ(topology.getSocketMask(0), topology.getTopologyMask());
    EXPECT_EQ(topology.getNumberNumaNodes(), 2u);
    EXPECT_FALSE(topology.socketsEqualToNumaNodes());
}

TEST(CpuTopologyFallback, LpusOutsideEverySocketDropTheSockets) {
    const CpuTopology topology =
        loadWarning("damaged-socket-mapping.xml", "Invalid LPU to socket mapping detected.");
    EXPECT_FALSE(topology.reliableSocketInformationAvailable());
    EXPECT_EQ(topology.getSocketsFromMask(maskOf({6})), (List{0}));
    EXPECT_EQ(topology.getSocketForPhysicalCore(3), 0u);
}

}  // namespace
}  // namespace tolm
