#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "machine/topology/CpuTopology.h"
#include "shmem/ShmemTesting.h"
#include "topology/BindingTestSupport.h"

namespace tolm {
namespace {

using namespace shmemtest;

const CpuTopology& topology() {
    return Machine::getHost().getCpuTopology();
}

// The host scope holds the host's processes in rank order; every scope's group has its first
// process in the sparse communicator.
TEST(ShmemCommunicators, TheHostScopeHoldsTheHostsProcessesAndGroupLeadersAreSparse) {
    List onHost;
    Machine::getHost().getMpiRanks(onHost);
    std::sort(onHost.begin(), onHost.end());
    EXPECT_EQ(membersOf(Machine::sharedMemCommunicator(HOST_SCOPE)), onHost);
    for (const ShmemScope scope : {NUMA_SCOPE, SOCKET_SCOPE, HOST_SCOPE}) {
        Communicator& group = Machine::sharedMemCommunicator(scope);
        Communicator* sparse = Machine::hasSparseCommunicator(scope);
        EXPECT_EQ(sparse != nullptr, group.myRank() == 0) << shmemScopeName(scope);
        const List leaders = ranksWhere(sparse != nullptr);
        if (sparse) {
            EXPECT_EQ(membersOf(*sparse), leaders) << shmemScopeName(scope);
        }
        List firsts;
        world().allGather(membersOf(group).front(), firsts);
        std::sort(firsts.begin(), firsts.end());
        firsts.erase(std::unique(firsts.begin(), firsts.end()), firsts.end());
        EXPECT_EQ(firsts, leaders) << shmemScopeName(scope);
    }
}

// This machine as hwloc sees it: a level with one container holds the whole host.
TEST(ShmemCommunicators, OneSocketOrNodeOnTheRealMachineHoldsTheWholeHost) {
    if (std::getenv("HWLOC_XMLFILE"))
        GTEST_SKIP() << "runs on the real machine's topology";
    const List host = membersOf(Machine::sharedMemCommunicator(HOST_SCOPE));
    if (topology().getNumberSockets() == 1) {
        EXPECT_EQ(membersOf(Machine::sharedMemCommunicator(SOCKET_SCOPE)), host);
    }
    if (topology().getNumberNumaNodes() == 1) {
        EXPECT_EQ(membersOf(Machine::sharedMemCommunicator(NUMA_SCOPE)), host);
    }
}

// The fixture split-numa-pair.xml: two sockets of two NUMA nodes each, with processors 0 and 1
// in the two nodes of the first socket. Every rank runs on both processors, then on one.
class SplitNumaPair : public testing::Test {
  protected:
    void SetUp() override {
        if (topology().getNumberSockets() != 2 || topology().getNumberNumaNodes() != 4)
            GTEST_SKIP() << "needs the host map to load split-numa-pair.xml";
        if (!both().isIncludedIn(topology().getAllowedMask()))
            GTEST_SKIP() << "needs processors 0 and 1";
    }
    void TearDown() override {
        AffinityTesting::setProcessAffinity(topology(), _saved);
        Machine::buildShmemCommunicators();
    }
    static AffinityMask both() { return AffinityMask().set(0).set(1); }
    // Every rank runs where `mask` says, then the communicators are built again.
    static void rebuildWith(const AffinityMask& mask) {
        ASSERT_TRUE(AffinityTesting::setProcessAffinity(topology(), mask));
        Machine::buildShmemCommunicators();
    }

    // Collective: every rank compares, rank 0 prints the groups.
    static void expectGroups(const std::string& host, const std::string& socket,
                             const std::string& numa, const char* placement) {
        const std::string groups[] = {groupsText(HOST_SCOPE), groupsText(SOCKET_SCOPE),
                                      groupsText(NUMA_SCOPE)};
        EXPECT_EQ(groups[0], host);
        EXPECT_EQ(groups[1], socket);
        EXPECT_EQ(groups[2], numa);
        if (myRank() == 0) {
            std::printf("[ scopes   ] %s: host %s | socket %s | numa %s | numa leaders %zu\n",
                        placement, groups[0].c_str(), groups[1].c_str(), groups[2].c_str(),
                        ranksOfSparse(NUMA_SCOPE));
        }
    }
    static std::size_t ranksOfSparse(ShmemScope scope) {
        Communicator* sparse = Machine::hasSparseCommunicator(scope);
        return sparse ? sparse->size() : 0;
    }

    AffinityMask _saved = Affinity::getProcessAffinity(topology());
};

TEST_F(SplitNumaPair, ProcessesSpanningTwoNodesAreDividedEvenlyByHostRank) {
    rebuildWith(both());
    const std::string all[] = {"", "{0}", "{0,1}", "{0,1,2}", "{0,1,2,3}"};
    const std::string halves[] = {"", "{0}", "{0} {1}", "{0,1} {2}", "{0,1} {2,3}"};
    const unsigned np = Machine::nProcesses();
    ASSERT_LE(np, 4u);
    expectGroups(all[np], all[np], halves[np], "spanning both nodes");
}

TEST_F(SplitNumaPair, ProcessesOnOneNodeEachAreGroupedByNode) {
    rebuildWith(AffinityMask().set(myRank() % 2));
    const std::string all[] = {"", "{0}", "{0,1}", "{0,1,2}", "{0,1,2,3}"};
    const std::string byNode[] = {"", "{0}", "{0} {1}", "{0,2} {1}", "{0,2} {1,3}"};
    const unsigned np = Machine::nProcesses();
    ASSERT_LE(np, 4u);
    expectGroups(all[np], all[np], byNode[np], "on processor rank % 2");
}

}  // namespace
}  // namespace tolm
