#include <gtest/gtest.h>

#include "machine/hybrid/ShmemWindow.h"
#include "shmem/ShmemTesting.h"
#include "support/MpiWorld.h"

namespace tolm {
namespace {

using namespace shmemtest;

using mpitest::payload;

TEST(ShmemWindow, ValuesOneProcessWritesAreReadByTheOthersAfterAFence) {
    Communicator& host = Machine::sharedMemCommunicator(HOST_SCOPE);
    const List members = membersOf(host);
    const unsigned perRank = 5;
    ShmemWindow<int> block(perRank * host.size());
    EXPECT_EQ(block.getSize(), perRank * host.size() * sizeof(int));

    const unsigned writer = host.size() - 1;  // not the owner of the block, where it can be
    if (host.myRank() == writer) {
        for (unsigned i = 0; i < block.size(); ++i)
            block[i] = payload(members[writer], i);
    }
    block.fence();
    for (unsigned i = 0; i < block.size(); ++i)
        ASSERT_EQ(block[i], payload(members[writer], i)) << "value " << i;
    block.fence();  // everyone has read before anyone overwrites

    for (unsigned i = 0; i < perRank; ++i)
        block[host.myRank() * perRank + i] = payload(myRank(), i);
    block.fence();
    for (unsigned rank = 0; rank < host.size(); ++rank) {
        for (unsigned i = 0; i < perRank; ++i)
            ASSERT_EQ(block[rank * perRank + i], payload(members[rank], i)) << "rank " << rank;
    }
}

TEST(ShmemWindow, AWindowOfZeroBytesIsLegal) {
    ShmemWindow<int> empty(0);
    EXPECT_EQ(empty.getSize(), 0u);
    empty.fence();
    ShmemWindow<double> alsoEmpty(0, Machine::sharedMemCommunicator(NUMA_SCOPE));
    EXPECT_EQ(alsoEmpty.getSize(), 0u);
}

TEST(ShmemWindow, AScopeWindowIsSharedByTheScopesGroupOnly) {
    for (const ShmemScope scope : {NUMA_SCOPE, SOCKET_SCOPE}) {
        Communicator& group = Machine::sharedMemCommunicator(scope);
        const List members = membersOf(group);
        ShmemWindow<unsigned> block(1, group);
        if (group.myRank() == 0)
            block[0] = myRank() + 100;
        block.fence();
        EXPECT_EQ(block[0], members.front() + 100) << shmemScopeName(scope);
    }
}

}  // namespace
}  // namespace tolm
