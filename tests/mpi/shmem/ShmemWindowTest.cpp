#include <gtest/gtest.h>

#include "machine/hybrid/ShmemWindow.h"
#include "shmem/ShmemTesting.h"
#include "support/MpiWorld.h"

namespace tolm {
namespace {

using namespace shmemtest;

using mpitest::payload;

// The window of each scope is shared by its group only: values one process writes are read by
// the group's others after a fence.
TEST(ShmemWindow, ValuesOneProcessWritesAreReadByItsGroupAfterAFence) {
    for (const ShmemScope scope : {HOST_SCOPE, NUMA_SCOPE, SOCKET_SCOPE}) {
        SCOPED_TRACE(shmemScopeName(scope));
        Communicator& group = Machine::sharedMemCommunicator(scope);
        const List members = membersOf(group);
        const unsigned perRank = 5;
        ShmemWindow<int> block(perRank * group.size(), group);
        EXPECT_EQ(block.getSize(), perRank * group.size() * sizeof(int));

        const unsigned writer = group.size() - 1;  // not the owner of the block, where it can be
        if (group.myRank() == writer) {
            for (unsigned i = 0; i < block.size(); ++i)
                block[i] = payload(members[writer], i);
        }
        block.fence();
        for (unsigned i = 0; i < block.size(); ++i)
            ASSERT_EQ(block[i], payload(members[writer], i)) << "value " << i;
        block.fence();  // everyone has read before anyone overwrites

        for (unsigned i = 0; i < perRank; ++i)
            block[group.myRank() * perRank + i] = payload(myRank(), i);
        block.fence();
        for (unsigned rank = 0; rank < group.size(); ++rank) {
            for (unsigned i = 0; i < perRank; ++i)
                ASSERT_EQ(block[rank * perRank + i], payload(members[rank], i)) << "rank " << rank;
        }
    }
}

TEST(ShmemWindow, AWindowOfZeroBytesIsLegal) {
    ShmemWindow<int> empty(0);
    EXPECT_EQ(empty.getSize(), 0u);
    empty.fence();
    ShmemWindow<double> alsoEmpty(0, Machine::sharedMemCommunicator(NUMA_SCOPE));
    EXPECT_EQ(alsoEmpty.getSize(), 0u);
}

}  // namespace
}  // namespace tolm
