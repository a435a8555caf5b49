#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "machine/topology/CpuTopology.h"
#include "neo/InternalError.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::describe;
using test::loadFixture;
using test::lpusOf;
using test::maskOf;
using test::numbers;
using List = std::vector<unsigned>;

TEST(CpuTopology, TwoSocketsWithANumaNodeEachAndTwoWayCores) {
    const CpuTopology topology = loadFixture("two-sockets.xml");

    EXPECT_EQ(topology.getNumberLpus(), 16u);
    EXPECT_EQ(topology.getNumberPhysicalCores(), 8u);
    EXPECT_EQ(topology.getNumberNumaNodes(), 2u);
    EXPECT_EQ(topology.getNumberSockets(), 2u);
    EXPECT_EQ(topology.getNumberLpus(7), 2u);
    EXPECT_EQ(topology.getNumberLpusForNumaNode(1), 8u);
    EXPECT_EQ(topology.getNumberPhysicalCoresForNumaNode(1), 4u);
    EXPECT_EQ(topology.getNumberLpusForSocket(0), 8u);
    EXPECT_EQ(topology.getNumberPhysicalCoresForSocket(0), 4u);

    EXPECT_EQ(topology.getLpusForPhysicalCore(3), (List{6, 7}));
    EXPECT_EQ(topology.getLpusForNumaNode(1), numbers(8, 15));
    EXPECT_EQ(topology.getLpusForSocket(0), numbers(0, 7));
    EXPECT_EQ(topology.getPhysicalCoresForNumaNode(1), numbers(4, 7));
    EXPECT_EQ(topology.getPhysicalCoresForSocket(0), numbers(0, 3));

    EXPECT_EQ(topology.getPhysicalCoreForLpu(9), 4u);
    EXPECT_EQ(topology.getNumaNodeForLpu(9), 1u);
    EXPECT_EQ(topology.getSocketForLpu(7), 0u);
    EXPECT_EQ(topology.getNumaNodeForPhysicalCore(3), 0u);
    EXPECT_EQ(topology.getSocketForPhysicalCore(5), 1u);

    EXPECT_TRUE(topology.reliableLpuInformationAvailable());
    EXPECT_TRUE(topology.reliablePhysicalCoreInformationAvailable());
    EXPECT_TRUE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_TRUE(topology.reliableSocketInformationAvailable());
    EXPECT_TRUE(topology.usesSMT());
    EXPECT_TRUE(topology.isSymmetric());
    EXPECT_TRUE(topology.socketsEqualToNumaNodes());
}

TEST(CpuTopology, TwoNumaNodesPerSocket) {
    const CpuTopology topology = loadFixture("two-numa-per-socket.xml");
    EXPECT_EQ(topology.getNumberNumaNodes(), 4u);
    EXPECT_EQ(topology.getNumberSockets(), 2u);
    EXPECT_EQ(topology.getLpusForNumaNode(2), numbers(8, 11));
    EXPECT_EQ(topology.getPhysicalCoresForNumaNode(3), (List{6, 7}));
    EXPECT_EQ(topology.getPhysicalCoresForSocket(1), numbers(4, 7));
    EXPECT_EQ(topology.getNumaNodeForLpu(5), 1u);
    EXPECT_EQ(topology.getNumaNodeForPhysicalCore(5), 2u);
    EXPECT_EQ(topology.getSocketForLpu(12), 1u);
    EXPECT_TRUE(topology.isSymmetric());
    EXPECT_FALSE(topology.socketsEqualToNumaNodes());
}

TEST(CpuTopology, SmtOffMakesEveryLpuACore) {
    const CpuTopology topology = loadFixture("smt-off.xml");
    EXPECT_EQ(topology.getNumberLpus(), 8u);
    EXPECT_EQ(topology.getNumberPhysicalCores(), 8u);
    EXPECT_TRUE(topology.reliablePhysicalCoreInformationAvailable());
    EXPECT_FALSE(topology.usesSMT());
    EXPECT_EQ(topology.getLpusForPhysicalCore(6), (List{6}));
}

TEST(CpuTopology, WithoutCoreObjectsEachLpuIsItsOwnCore) {
    const CpuTopology topology = loadFixture("no-cores.xml");
    EXPECT_FALSE(topology.reliablePhysicalCoreInformationAvailable());
    EXPECT_EQ(topology.getNumberPhysicalCores(), topology.getNumberLpus());
    EXPECT_FALSE(topology.usesSMT());
    for (unsigned core = 0; core < topology.getNumberPhysicalCores(); ++core) {
        EXPECT_EQ(topology.getLpusForPhysicalCore(core), (List{core}));
        EXPECT_EQ(topology.getPhysicalCoreForLpu(core), core);
        EXPECT_EQ(topology.getNumberLpus(core), 1u);
        EXPECT_EQ(topology.getPhysicalCoreMask(core), topology.getLpuMask(core));
    }
    EXPECT_EQ(topology.getPhysicalCoresForSocket(1), numbers(4, 7));
    EXPECT_EQ(topology.getSocketForPhysicalCore(5), 1u);
    EXPECT_EQ(topology.getPhysicalCoresFromMask(maskOf({2, 6})), (List{2, 6}));
}

TEST(CpuTopology, SymmetryNeedsEqualMembersAtEveryLevel) {
    const CpuTopology fewerCores = loadFixture("asymmetric-cores.xml");
    EXPECT_EQ(fewerCores.getNumberPhysicalCoresForSocket(0), 4u);
    EXPECT_EQ(fewerCores.getNumberPhysicalCoresForSocket(1), 3u);
    EXPECT_FALSE(fewerCores.isSymmetric());
    EXPECT_TRUE(fewerCores.socketsEqualToNumaNodes());

    const CpuTopology mixedThreads = loadFixture("mixed-smt-cores.xml");
    EXPECT_EQ(mixedThreads.getNumberLpus(0), 2u);
    EXPECT_EQ(mixedThreads.getNumberLpus(1), 1u);
    EXPECT_TRUE(mixedThreads.usesSMT());
    EXPECT_FALSE(mixedThreads.isSymmetric());
}

TEST(CpuTopology, SingleCoreMachineWithoutSocketObject) {
    const CpuTopology topology = loadFixture("single-core.xml");
    EXPECT_EQ(topology.getNumberLpus(), 1u);
    EXPECT_EQ(topology.getNumberPhysicalCores(), 1u);
    EXPECT_TRUE(topology.reliableNumaNodeInformationAvailable());
    EXPECT_EQ(topology.getPhysicalCoresForNumaNode(0), (List{0}));
    EXPECT_FALSE(topology.reliableSocketInformationAvailable());
    EXPECT_EQ(topology.getLpusForSocket(0), (List{0}));
    EXPECT_EQ(topology.getSocketMask(0), topology.getLpuMask(0));
    EXPECT_TRUE(topology.isSymmetric());
    EXPECT_TRUE(topology.socketsEqualToNumaNodes());
}

// LPU numbers are the system's own; masks hold the operating system's processor indices.
TEST(CpuTopology, MasksHoldOperatingSystemProcessorIndices) {
    const CpuTopology topology = loadFixture("interleaved-smt.xml");
    EXPECT_EQ(topology.getLpuMask(1), maskOf({4}));
    EXPECT_EQ(topology.getLpuMask(List{0, 1, 2}), maskOf({0, 1, 4}));
    EXPECT_EQ(topology.getPhysicalCoreMask(1), maskOf({1, 5}));
    EXPECT_EQ(topology.getPhysicalCoreMask(List{0, 3}), maskOf({0, 4, 3, 7}));
    EXPECT_EQ(topology.getNumaMask(1), maskOf({2, 6, 3, 7}));
    EXPECT_EQ(topology.getSocketMask(0), maskOf({0, 4, 1, 5}));
    EXPECT_EQ(topology.getSocketMask(List{0, 1}), topology.getTopologyMask());
    EXPECT_EQ(topology.getNumaMask(List{}), AffinityMask());
    EXPECT_EQ(lpusOf(topology.getTopologyMask()), numbers(0, 7));

    EXPECT_EQ(topology.getLpusFromMask(maskOf({4, 5})), (List{1, 3}));
    EXPECT_EQ(topology.getPhysicalCoresFromMask(maskOf({4, 7})), (List{0, 3}));
    EXPECT_EQ(topology.getNumaNodesFromMask(maskOf({5})), (List{0}));
    EXPECT_EQ(topology.getSocketsFromMask(maskOf({0, 6})), (List{0, 1}));
    EXPECT_TRUE(topology.getLpusFromMask(maskOf({8, 40})).empty());
    EXPECT_TRUE(topology.getSocketsFromMask(AffinityMask()).empty());
}

// A topology read from text stands for this machine: what this process may use is decided
// here, not by the process that exported the text.
TEST(CpuTopology, AvailableResourcesAreThisProcesssOwn) {
    const CpuTopology thisMachine;
    const CpuTopology fromText = loadFixture("many-lpus.xml");
    const AffinityMask fixtureLpus = fromText.getTopologyMask();
    EXPECT_EQ(fixtureLpus.count(), 208u);
    const AffinityMask expected = fixtureLpus & thisMachine.getAllowedMask();
    EXPECT_EQ(fromText.getAllowedMask(), expected);
    EXPECT_EQ(fromText.restrictToAvailableResources(AffinityMask(fixtureLpus)), expected);
    EXPECT_EQ(fromText.restrictToAvailableResources(maskOf({0, 500})),
              maskOf({0}) & thisMachine.getAllowedMask());
}

TEST(CpuTopology, ExportedTextRebuildsTheSameTopology) {
    for (const char* name :
         {"two-numa-per-socket.xml", "asymmetric-cores.xml", "interleaved-smt.xml", "no-cores.xml",
          "many-lpus.xml", "numa-inside-cores.xml", "damaged-core-order.xml"}) {
        SCOPED_TRACE(name);
        const CpuTopology original = loadFixture(name);
        const std::string text = original.toString();
        EXPECT_NE(text.find("<topology"), std::string::npos);
        const CpuTopology copy(text);
        EXPECT_EQ(describe(copy), describe(original));
        EXPECT_EQ(copy.reliablePhysicalCoreInformationAvailable(),
                  original.reliablePhysicalCoreInformationAvailable());
        EXPECT_EQ(copy.isSymmetric(), original.isSymmetric());
    }
}

TEST(CpuTopology, MovingHandsTheTopologyOver) {
    CpuTopology first = loadFixture("two-sockets.xml");
    const std::string before = describe(first);
    CpuTopology second(std::move(first));
    EXPECT_EQ(describe(second), before);
    first = loadFixture("smt-off.xml");
    second = std::move(first);
    EXPECT_EQ(second.getNumberLpus(), 8u);
}

// Runs `query` and returns the condition of the InternalError it throws.
std::string failedCondition(const std::function<void()>& query) {
    try {
        query();
    } catch (const InternalError& error) {
        EXPECT_NE(error.getFile().find("CpuTopology"), std::string::npos) << error.getFile();
        return error.getCondition();
    }
    return "no error";
}

TEST(CpuTopology, IndicesOutOfRangeNameTheFailedCondition) {
    const CpuTopology t = loadFixture("two-sockets.xml");
    EXPECT_EQ(failedCondition([&] { t.getLpuMask(16); }), "lpu < _lpus.size()");
    EXPECT_EQ(failedCondition([&] { t.getPhysicalCoreForLpu(16); }),
              "lpu < _lpuPhysicalCore.size()");
    EXPECT_EQ(failedCondition([&] { t.getNumaNodeForLpu(16); }), "lpu < _lpuNumaNode.size()");
    EXPECT_EQ(failedCondition([&] { t.getSocketForLpu(16); }), "lpu < _lpuSocket.size()");
    EXPECT_EQ(failedCondition([&] { t.getNumberLpus(8); }),
              "physicalCore < getNumberPhysicalCores()");
    EXPECT_EQ(failedCondition([&] { t.getLpusForPhysicalCore(8); }),
              "physicalCore < _physicalCores.size()");
    EXPECT_EQ(failedCondition([&] { t.getPhysicalCoreMask(8); }),
              "physicalCore < _physicalCores.size()");
    EXPECT_EQ(failedCondition([&] { t.getNumaNodeForPhysicalCore(8); }),
              "physicalCore < _physicalCoreNumaNode.size()");
    EXPECT_EQ(failedCondition([&] { t.getSocketForPhysicalCore(8); }),
              "physicalCore < _physicalCoreSocket.size()");
    EXPECT_EQ(failedCondition([&] { t.getLpusForNumaNode(2); }), "numaNode < _numaNodeLpus.size()");
    EXPECT_EQ(failedCondition([&] { t.getNumaMask(2); }), "numaNode < _numaNodeLpus.size()");
    EXPECT_EQ(failedCondition([&] { t.getPhysicalCoresForNumaNode(2); }),
              "numaNode < _numaNodePhysicalCores.size()");
    EXPECT_EQ(failedCondition([&] { t.getLpusForSocket(2); }), "socket < _socketLpus.size()");
    EXPECT_EQ(failedCondition([&] { t.getSocketMask(2); }), "socket < _socketLpus.size()");
    EXPECT_EQ(failedCondition([&] { t.getPhysicalCoresForSocket(2); }),
              "socket < _socketPhysicalCores.size()");
}

TEST(CpuTopology, IndicesBeyondAFallbackLevelNameTheFailedCondition) {
    const CpuTopology noCores = loadFixture("no-cores.xml");
    EXPECT_EQ(failedCondition([&] { noCores.getLpusForPhysicalCore(8); }),
              "physicalCore < getNumberPhysicalCores()");
    EXPECT_EQ(failedCondition([&] { noCores.getPhysicalCoreForLpu(8); }), "lpu < getNumberLpus()");
    const CpuTopology noSocket = loadFixture("single-core.xml");
    EXPECT_EQ(failedCondition([&] { noSocket.getLpusForSocket(1); }), "socket == 0u");
    EXPECT_EQ(failedCondition([&] { noSocket.getSocketMask(1); }), "socket == 0u");
    EXPECT_EQ(failedCondition([&] { noSocket.getSocketForLpu(1); }), "lpu < getNumberLpus()");
    const CpuTopology noNuma = loadFixture("damaged-numa-mapping.xml");
    EXPECT_EQ(failedCondition([&] { noNuma.getLpusForNumaNode(1); }), "numaNode == 0u");
    EXPECT_EQ(failedCondition([&] { noNuma.getNumaNodeForLpu(8); }), "lpu < getNumberLpus()");
}

}  // namespace
}  // namespace tolm
