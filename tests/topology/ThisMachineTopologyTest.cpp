#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "machine/topology/CpuTopology.h"
#include "topology/BindingTestSupport.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

// The number hwloc-calc prints for `what` (e.g. "pu"), counting disallowed processors too;
// -1 when the tool is missing.
int hwlocCalcCount(const std::string& what) {
    const std::string command = "hwloc-calc --whole-system -N " + what + " all 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return -1;
    int count = -1;
    if (std::fscanf(pipe, "%d", &count) != 1)
        count = -1;
    return pclose(pipe) == 0 ? count : -1;
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

TEST(ThisMachineTopology, CountsMatchHwlocCalc) {
    const int lpus = hwlocCalcCount("pu");
    if (lpus < 0)
        GTEST_SKIP() << "hwloc-calc is not available";
    const CpuTopology topology;
    EXPECT_EQ(static_cast<int>(topology.getNumberLpus()), lpus);
    if (topology.reliablePhysicalCoreInformationAvailable()) {
        EXPECT_EQ(static_cast<int>(topology.getNumberPhysicalCores()), hwlocCalcCount("core"));
    }
    if (topology.reliableNumaNodeInformationAvailable()) {
        EXPECT_EQ(static_cast<int>(topology.getNumberNumaNodes()), hwlocCalcCount("numa"));
    }
    if (topology.reliableSocketInformationAvailable()) {
        EXPECT_EQ(static_cast<int>(topology.getNumberSockets()), hwlocCalcCount("package"));
    }
}

}  // namespace
}  // namespace tolm
