#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "machine/topology/CpuTopology.h"
#include "machine/topology/CpuTopologyTableBuilder.h"
#include "neo/InternalError.h"
#include "support/Failure.h"
#include "topology/BindingTestSupport.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::describe;
using test::loadFixture;
using test::lpusOf;
using test::maskOf;
using test::numbers;
using List = std::vector<unsigned>;
using Warnings = std::vector<std::string>;

bool contains(const List& list, unsigned value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// "0-3,6": a list with its runs of consecutive numbers shortened.
std::string listText(const List& list) {
    std::string text;
    for (std::size_t at = 0; at < list.size();) {
        std::size_t end = at;
        while (end + 1 < list.size() && list[end + 1] == list[end] + 1)
            ++end;
        text += (text.empty() ? "" : ",") + std::to_string(list[at]);
        if (end > at)
            text += "-" + std::to_string(list[end]);
        at = end + 1;
    }
    return text;
}

// Each level's members in one line: the LPUs of each core, NUMA node and socket, the cores of
// each NUMA node and socket, and which information hwloc gave ("LCNS") and the shape's flags.
std::string layout(const CpuTopology& t) {
    std::string text;
    const auto level = [&](const char* name, unsigned count, auto members) {
        text += name;
        for (unsigned unit = 0; unit < count; ++unit)
            text += " " + listText(members(unit));
        text += "; ";
    };
    level("C", t.getNumberPhysicalCores(), [&](unsigned c) { return t.getLpusForPhysicalCore(c); });
    level("N", t.getNumberNumaNodes(), [&](unsigned n) { return t.getLpusForNumaNode(n); });
    level("S", t.getNumberSockets(), [&](unsigned s) { return t.getLpusForSocket(s); });
    level("NC", t.getNumberNumaNodes(),
          [&](unsigned n) { return t.getPhysicalCoresForNumaNode(n); });
    level("SC", t.getNumberSockets(), [&](unsigned s) { return t.getPhysicalCoresForSocket(s); });
    text += t.reliableLpuInformationAvailable() ? "L" : "-";
    text += t.reliablePhysicalCoreInformationAvailable() ? "C" : "-";
    text += t.reliableNumaNodeInformationAvailable() ? "N" : "-";
    text += t.reliableSocketInformationAvailable() ? "S" : "-";
    text += t.usesSMT() ? " smt" : "";
    text += t.isSymmetric() ? " symmetric" : "";
    text += t.socketsEqualToNumaNodes() ? " S=N" : "";
    return text;
}

// The per-LPU and per-core look-ups, counts and masks agree with the member lists.
void expectConsistent(const CpuTopology& t) {
    for (unsigned lpu = 0; lpu < t.getNumberLpus(); ++lpu) {
        EXPECT_TRUE(contains(t.getLpusForPhysicalCore(t.getPhysicalCoreForLpu(lpu)), lpu)) << lpu;
        EXPECT_TRUE(contains(t.getLpusForNumaNode(t.getNumaNodeForLpu(lpu)), lpu)) << lpu;
        EXPECT_TRUE(contains(t.getLpusForSocket(t.getSocketForLpu(lpu)), lpu)) << lpu;
        EXPECT_EQ(t.getLpusFromMask(t.getLpuMask(lpu)), List{lpu});
    }
    for (unsigned core = 0; core < t.getNumberPhysicalCores(); ++core) {
        const List lpus = t.getLpusForPhysicalCore(core);
        EXPECT_EQ(t.getNumberLpus(core), lpus.size());
        EXPECT_EQ(t.getPhysicalCoreMask(core), t.getLpuMask(lpus));
        EXPECT_EQ(t.getPhysicalCoresFromMask(t.getPhysicalCoreMask(core)), List{core});
        EXPECT_TRUE(
            contains(t.getPhysicalCoresForNumaNode(t.getNumaNodeForPhysicalCore(core)), core));
        EXPECT_TRUE(contains(t.getPhysicalCoresForSocket(t.getSocketForPhysicalCore(core)), core));
    }
    for (unsigned node = 0; node < t.getNumberNumaNodes(); ++node) {
        EXPECT_EQ(t.getNumberLpusForNumaNode(node), t.getLpusForNumaNode(node).size());
        EXPECT_EQ(t.getNumberPhysicalCoresForNumaNode(node),
                  t.getPhysicalCoresForNumaNode(node).size());
        EXPECT_EQ(t.getNumaMask(node), t.getLpuMask(t.getLpusForNumaNode(node)));
        EXPECT_EQ(t.getNumaNodesFromMask(t.getNumaMask(node)), List{node});
    }
    for (unsigned socket = 0; socket < t.getNumberSockets(); ++socket) {
        EXPECT_EQ(t.getNumberLpusForSocket(socket), t.getLpusForSocket(socket).size());
        EXPECT_EQ(t.getNumberPhysicalCoresForSocket(socket),
                  t.getPhysicalCoresForSocket(socket).size());
        EXPECT_EQ(t.getSocketMask(socket), t.getLpuMask(t.getLpusForSocket(socket)));
        EXPECT_EQ(t.getSocketsFromMask(t.getSocketMask(socket)), List{socket});
    }
    const AffinityMask outside = maskOf({4000});
    EXPECT_TRUE(t.getLpusFromMask(outside).empty());
    EXPECT_TRUE(t.getNumaNodesFromMask(outside).empty());
    EXPECT_TRUE(t.getSocketsFromMask(outside).empty());
}

struct Shape {
    const char* fixture;
    const char* warning;  // of the extraction; "" for none
    const char* layout;   // null: too long to write down
};

// A level whose objects hwloc reports out of order, or that leave LPUs out, falls back to one
// member per LPU (cores) or one for the machine (NUMA nodes, sockets); the other levels stay.
const Shape shapes[] = {
    {"two-sockets.xml", "",
     "C 0-1 2-3 4-5 6-7 8-9 10-11 12-13 14-15; N 0-7 8-15; S 0-7 8-15; NC 0-3 4-7; SC 0-3 4-7; "
     "LCNS smt symmetric S=N"},
    {"two-numa-per-socket.xml", "",
     "C 0-1 2-3 4-5 6-7 8-9 10-11 12-13 14-15; N 0-3 4-7 8-11 12-15; S 0-7 8-15; "
     "NC 0-1 2-3 4-5 6-7; SC 0-3 4-7; LCNS smt symmetric"},
    {"two-numa-nodes.xml", "",
     "C 0-1 2-3 4-5 6-7; N 0-3 4-7; S 0-7; NC 0-1 2-3; SC 0-3; LCN- smt symmetric"},
    {"smt-off.xml", "",
     "C 0 1 2 3 4 5 6 7; N 0-3 4-7; S 0-3 4-7; NC 0-3 4-7; SC 0-3 4-7; LCNS symmetric S=N"},
    {"no-cores.xml", "", "C 0 1 2 3 4 5 6 7; N 0-7; S 0-3 4-7; NC 0-7; SC 0-3 4-7; L-NS symmetric"},
    {"asymmetric-cores.xml", "",
     "C 0-1 2-3 4-5 6-7 8-9 10-11 12-13; N 0-7 8-13; S 0-7 8-13; NC 0-3 4-6; SC 0-3 4-6; LCNS smt "
     "S=N"},
    {"mixed-smt-cores.xml", "", "C 0-1 2; N 0-2; S 0-2; NC 0-1; SC 0-1; LCNS smt S=N"},
    {"single-core.xml", "", "C 0; N 0; S 0; NC 0; SC 0; LCN- symmetric S=N"},
    {"interleaved-smt.xml", "",
     "C 0-1 2-3 4-5 6-7; N 0-3 4-7; S 0-3 4-7; NC 0-1 2-3; SC 0-1 2-3; LCNS smt symmetric S=N"},
    {"many-lpus.xml", "", nullptr},
    {"hundred-and-one-lpus.xml", "", nullptr},
    {"damaged-core-order.xml",
     "Physical cores were detected, but the expected core - or nested LPU - ordering is wrong.",
     "C 0 1 2 3 4 5 6 7; N 0-3 4-7; S 0-3 4-7; NC 0-3 4-7; SC 0-3 4-7; L-NS symmetric S=N"},
    {"damaged-core-mapping.xml", "Invalid LPU to physical core mapping detected.",
     "C 0 1 2 3 4 5 6 7; N 0-3 4-7; S 0-3 4-7; NC 0-3 4-7; SC 0-3 4-7; L-NS symmetric S=N"},
    {"numa-pair-per-socket.xml",
     "NUMA nodes were detected, but the expected NUMA node - or nested LPU - ordering is wrong.",
     "C 0-1 2-3 4-5 6-7; N 0-7; S 0-3 4-7; NC 0-3; SC 0-1 2-3; LC-S smt symmetric"},
    {"damaged-numa-mapping.xml", "Invalid LPU to NUMA node mapping detected.",
     "C 0-1 2-3 4-5 6-7; N 0-7; S 0-3 4-7; NC 0-3; SC 0-1 2-3; LC-S smt symmetric"},
    // NUMA nodes (sockets) smaller than a core keep their LPUs and name the cores of those.
    {"numa-inside-cores.xml",
     "Either no physical cores were detected for the NUMA nodes or the expectednested physical "
     "core ordering is wrong.",
     "C 0-3 4-7; N 0-1 2-3 4-5 6-7; S 0-7; NC 0 0 1 1; SC 0-1; LCN- smt symmetric"},
    {"sockets-inside-cores.xml",
     "Either no physical cores were detected for the sockets or the expectednested physical core "
     "ordering is wrong.",
     "C 0-3 4-7; N 0-7; S 0-1 2-3 4-5 6-7; NC 0-1; SC 0 0 1 1; LCNS smt symmetric"},
    {"damaged-socket-order.xml",
     "Sockets were detected, but the expected socket - or nested LPU - ordering is wrong.",
     "C 0-1 2-3 4-5 6-7; N 0-3 4-7; S 0-7; NC 0-1 2-3; SC 0-3; LCN- smt symmetric"},
    {"damaged-socket-mapping.xml", "Invalid LPU to socket mapping detected.",
     "C 0-1 2-3 4-5 6-7; N 0-3 4-7; S 0-7; NC 0-1 2-3; SC 0-3; LCN- smt symmetric"},
};

TEST(CpuTopology, EachFixtureHasItsShapeAndLogsOnlyItsDefect) {
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.fixture);
        test::WarningCapture log;
        const CpuTopology topology = loadFixture(shape.fixture);
        EXPECT_EQ(log.warnings(),
                  *shape.warning ? Warnings{test::extractionWarning(shape.warning)} : Warnings{});
        if (shape.layout) {
            EXPECT_EQ(layout(topology), shape.layout);
        }
        expectConsistent(topology);
    }
}

// LPU numbers are the system's own; masks hold the operating system's processor indices.
TEST(CpuTopology, MasksHoldOperatingSystemProcessorIndices) {
    const CpuTopology topology = loadFixture("interleaved-smt.xml");
    EXPECT_EQ(topology.getLpuMask(1), maskOf({4}));
    EXPECT_EQ(topology.getLpuMask(List{0, 1, 2}), maskOf({0, 1, 4}));
    EXPECT_EQ(topology.getPhysicalCoreMask(List{0, 3}), maskOf({0, 4, 3, 7}));
    EXPECT_EQ(topology.getNumaMask(1), maskOf({2, 6, 3, 7}));
    EXPECT_EQ(topology.getSocketMask(List{0, 1}), topology.getTopologyMask());
    EXPECT_EQ(topology.getNumaMask(List{}), AffinityMask());
    EXPECT_EQ(lpusOf(topology.getTopologyMask()), numbers(0, 7));
    EXPECT_EQ(topology.getLpusFromMask(maskOf({4, 5})), (List{1, 3}));
    EXPECT_EQ(topology.getPhysicalCoresFromMask(maskOf({4, 7})), (List{0, 3}));
    EXPECT_EQ(topology.getSocketsFromMask(maskOf({0, 6})), (List{0, 1}));
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
        const CpuTopology copy(original.toString());
        EXPECT_EQ(describe(copy), describe(original));
        EXPECT_EQ(layout(copy), layout(original));
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

// Without an hwloc topology every level is flat and every mask empty.
void expectNoTopology(const CpuTopology& topology) {
    EXPECT_EQ(layout(topology), "C 0; N 0; S 0; NC 0; SC 0; ---- symmetric S=N");
    EXPECT_TRUE(topology.getLpuMask(0).empty());
    EXPECT_TRUE(topology.getSocketMask(0).empty());
    EXPECT_TRUE(topology.getTopologyMask().empty());
    EXPECT_TRUE(topology.getAllowedMask().empty());
    EXPECT_TRUE(topology.restrictToAvailableResources(maskOf({0, 1})).empty());
    EXPECT_TRUE(topology.getLpusFromMask(maskOf({0})).empty());
    EXPECT_TRUE(topology.getNumaNodesFromMask(maskOf({0})).empty());
    EXPECT_EQ(topology.toString(), "");
    EXPECT_TRUE(test::failureOf([&] { topology.getLpuMask(1); }).ends_with(" | lpu == 0u"));
}

// Defects that crash hwloc's loader (or have it allocate half a gigabyte) are refused before
// hwloc sees the text, with a warning naming the defect; text hwloc cannot load says nothing.
TEST(CpuTopology, TextWithoutAUsableTopologyGivesNoTopology) {
    const std::string noLpus = test::extractionWarning(
        "The hwloc topology data structure was successfully initialized, but no LPUs were "
        "detected.");
    const auto damaged = [](const std::string& defect) {
        return "CpuTopology::Impl::load: The hwloc XML topology is damaged (" + defect +
               "); no topology is loaded.";
    };
    const std::pair<const char*, std::string> cases[] = {
        {"damaged-no-pus.xml", noLpus},
        {"damaged-truncated.xml", ""},
        {"damaged-pu-without-complete-cpuset.xml",
         damaged("the PU object with os_index 3 has a cpuset but no complete_cpuset")},
        {"damaged-root-without-complete-cpuset.xml",
         damaged("the Machine object with os_index 0 has a cpuset but no complete_cpuset")},
        {"damaged-numa-without-complete-nodeset.xml",
         damaged("the NUMANode object with os_index 0 has a nodeset but no complete_nodeset")},
        {"damaged-root-without-complete-nodeset.xml",
         damaged("the Machine object with os_index 0 has a nodeset but no complete_nodeset")},
        {"damaged-cpuset-outside-complete-cpuset.xml",
         damaged("the Machine object with os_index 0 has a cpuset outside its complete_cpuset")},
        {"damaged-unreadable-complete-cpuset.xml",
         damaged("the Machine object with os_index 0 has complete_cpuset \"lo\", which is no set")},
        {"damaged-empty-allowed-nodeset.xml",
         damaged("the Machine object has allowed_nodeset \"\", which is no set")},
        {"damaged-hwloc1-numa-without-nodeset.xml",
         damaged("it is not in the format of hwloc 2 or later (<topology version=\"2.0\">)")},
        {"damaged-doctype-without-dtd.xml",
         damaged("its document type declaration names no DTD file")},
        {"damaged-numa-without-os-index.xml",
         damaged("the NUMANode object has no os_index below 1048576")},
        {"damaged-pu-with-huge-os-index.xml",
         damaged("the PU object with os_index 4000000000 has no os_index below 1048576")}};
    for (const auto& [name, warning] : cases) {
        SCOPED_TRACE(name);
        test::WarningCapture log;
        expectNoTopology(loadFixture(name));
        EXPECT_EQ(log.warnings(), warning.empty() ? Warnings{} : Warnings{warning});
    }
    test::WarningCapture log;
    expectNoTopology(CpuTopology(std::string("not an XML topology")));
    EXPECT_EQ(log.warnings(), Warnings{});
}

// hwloc's XML plugin sets libxml2's error handler to a function of its own and is unloaded with
// the topology; bytes that UTF-7 cannot decode reach that handler on a later read.
TEST(CpuTopology, UndecodableTextAfterAnotherTopologyGivesNoTopology) {
    (void)loadFixture("single-core.xml");
    test::WarningCapture log;
    expectNoTopology(loadFixture("damaged-utf7-bytes.xml"));
    EXPECT_EQ(log.warnings(), Warnings{});
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

TEST(ThisMachineTopology, DiscoveryMatchesTheOperatingSystem) {
    test::WarningCapture log;
    const CpuTopology topology;
    EXPECT_TRUE(log.warnings().empty());
    ASSERT_TRUE(topology.reliableLpuInformationAvailable());
    EXPECT_EQ(topology.getNumberLpus(), topology.getTopologyMask().count());
    EXPECT_EQ(static_cast<long>(topology.getNumberLpus()), sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_LE(topology.getNumberPhysicalCores(), topology.getNumberLpus());

    // Every processor this process runs on is one it may use.
    EXPECT_TRUE(test::threadAffinityFromSystem().isIncludedIn(topology.getAllowedMask()));
    EXPECT_EQ(topology.restrictToAvailableResources(topology.getTopologyMask()),
              topology.getAllowedMask());
    EXPECT_FALSE(topology.getLpusFromMask(topology.getAllowedMask()).empty());
}

struct Printed {
    const char* fixture;
    const char* levels;  // S sockets, N NUMA nodes, C cores, + the summary
    unsigned indent, maxItems;
    const char* text;
};

// Sockets equal to NUMA nodes share their lines; core lines only with SMT; numbers are padded
// to the digits of their level; long lists keep their ends within maxItems (at least two), but
// two cores are never shortened however many threads they hold.
const Printed printed[] = {
    {"two-sockets.xml", "SN", 2, 100,
     "  S00 = N00 : [00+01 02+03 04+05 06+07]\n  S01 = N01 : [08+09 10+11 12+13 14+15]\n"},
    {"two-sockets.xml", "N", 0, 100,
     "N00 : [00+01 02+03 04+05 06+07]\nN01 : [08+09 10+11 12+13 14+15]\n"},
    {"two-numa-per-socket.xml", "SN", 1, 100,
     " S00 : [00+01 02+03 04+05 06+07]\n S01 : [08+09 10+11 12+13 14+15]\n N00 : [00+01 02+03]\n"
     " N01 : [04+05 06+07]\n N02 : [08+09 10+11]\n N03 : [12+13 14+15]\n"},
    {"mixed-smt-cores.xml", "C", 0, 100, "C00 : [00+01]\nC01 : [02]\n"},
    {"smt-off.xml", "C", 0, 100, ""},
    {"two-numa-per-socket.xml", "+", 2, 100,
     "  LPUs = 16, physical cores = 8, NUMA nodes = 4, sockets = 2\n"
     "  Sockets are equal to NUMA nodes: no\n  Simultaneous multithreading (SMT): yes\n"
     "  Symmetric: yes\n  Information obtained via hwloc: LPUs = yes, physical cores = yes, NUMA "
     "nodes = yes, sockets = yes\n"},
    {"damaged-no-pus.xml", "SNC+", 0, 100,
     "S00 = N00 : [00]\nLPUs = 1, physical cores = 1, NUMA nodes = 1, sockets = 1\n"
     "Sockets are equal to NUMA nodes: yes\nSimultaneous multithreading (SMT): no\nSymmetric: yes\n"
     "Information obtained via hwloc: LPUs = no, physical cores = no, NUMA nodes = no, sockets = "
     "no\n"},
    {"smt-off.xml", "S", 0, 4, "S00 : [00 01 02 03]\nS01 : [04 05 06 07]\n"},
    {"smt-off.xml", "S", 0, 3, "S00 : [00 01 ... 03]\nS01 : [04 05 ... 07]\n"},
    {"smt-off.xml", "S", 0, 0, "S00 : [00 ... 03]\nS01 : [04 ... 07]\n"},
    {"hundred-and-one-lpus.xml", "S", 0, 6, "S00 : [000 001 002 ... 098 099 100]\n"},
    {"two-numa-nodes.xml", "N", 0, 2, "N00 : [00+01 02+03]\nN01 : [04+05 06+07]\n"},
};

TEST(CpuTopologyPrint, EachLevelOnItsOwnLinesAndTheSummary) {
    for (const Printed& p : printed) {
        test::WarningCapture log;  // the damaged fixture warns as it loads
        const std::string levels = p.levels;
        const auto has = [&](char level) { return levels.find(level) != std::string::npos; };
        EXPECT_EQ(loadFixture(p.fixture).print(has('S'), has('N'), has('C'), has('+'), p.indent,
                                               p.maxItems),
                  p.text)
            << p.fixture << " " << p.levels << " " << p.maxItems;
    }
    const std::string many = loadFixture("many-lpus.xml").print(false, true, true, false, 0, 4);
    EXPECT_NE(many.find("N03 : [156+157 ... 206+207]\n"), std::string::npos) << many;
    EXPECT_NE(many.find("C103 : [206+207]\n"), std::string::npos) << many;
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

// The table builder on hand-made hwloc objects: consistency checks that no topology hwloc
// loads can trip.
TEST(CpuTopologyTableBuilder, RootsFewerThanTheContainersAreAnInternalError) {
    hwloc_obj pu{};
    pu.type = HWLOC_OBJ_PU;
    hwloc_obj_t children[] = {&pu};
    hwloc_obj core{};
    core.type = HWLOC_OBJ_CORE;
    core.arity = 1;
    core.children = children;
    hwloc_obj otherCore{};
    otherCore.type = HWLOC_OBJ_CORE;
    const std::vector<HwlocObj> cores{{&core, 0}, {&otherCore, 1}};
    const std::vector<HwlocObj> pus{{&pu, 0}};

    const auto nested = CpuTopologyTableBuilder::nest({cores[0]}, {&core}, pus);
    ASSERT_EQ(nested.size(), 1u);
    EXPECT_EQ(nested[0].objs.size(), 1u);
    EXPECT_EQ(test::failureOf([&] { CpuTopologyTableBuilder::nest(cores, {&core}, pus); }),
              "Index out of range. | index < list.size()");
}

}  // namespace
}  // namespace tolm
