// Shared-memory windows through the wrapper: the translated assertions and the passive
// synchronisation calls the machine layer does not use.
#include <gtest/gtest.h>

#include <vector>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

struct SharedBlock {
    int comm = QMX_MPI_COMM_NULL;
    int window = QMX_MPI_WIN_NULL;
    int* base = nullptr;  // rank 0's block, as mapped on this rank
    QMX_MPI_Aint bytes = 0;
    int unit = 0;
};

// A window whose memory is all on the host communicator's rank 0, as the machine layer
// allocates them.
SharedBlock allocateOnFirstRank(QMX_MPI_Aint bytes) {
    SharedBlock block;
    EXPECT_QMX_OK(QMX_MPI_Comm_split_type(QMX_MPI_COMM_WORLD, QMX_MPI_COMM_TYPE_SHARED, 0,
                                          QMX_MPI_INFO_NULL, &block.comm));
    int rank = -1;
    EXPECT_QMX_OK(QMX_MPI_Comm_rank(block.comm, &rank));
    void* mine = nullptr;
    EXPECT_QMX_OK(QMX_MPI_Win_allocate_shared(rank == 0 ? bytes : 0, sizeof(int), QMX_MPI_INFO_NULL,
                                              block.comm, &mine, &block.window));
    void* first = nullptr;
    EXPECT_QMX_OK(QMX_MPI_Win_shared_query(block.window, 0, &block.bytes, &block.unit, &first));
    block.base = static_cast<int*>(first);
    return block;
}

void release(SharedBlock& block) {
    EXPECT_QMX_OK(QMX_MPI_Win_free(&block.window));
    EXPECT_EQ(QMX_MPI_WIN_NULL, block.window);
    EXPECT_QMX_OK(QMX_MPI_Comm_free(&block.comm));
}

// Values written before a fence are seen after it at the Communicator level (ShmemWindowTest,
// which also allocates a window of 0 bytes); here the fence's assertion bits.
TEST(SharedWindows, FenceAssertionsAreTranslated) {
    SharedBlock block = allocateOnFirstRank(static_cast<QMX_MPI_Aint>(sizeof(int)));
    ASSERT_EQ(static_cast<int>(sizeof(int)), block.unit);
    ASSERT_QMX_OK(QMX_MPI_Win_fence(QMX_MPI_MODE_NOPRECEDE, block.window));
    ASSERT_QMX_OK(QMX_MPI_Win_fence(QMX_MPI_MODE_NOSUCCEED, block.window));
    EXPECT_EQ(QMX_MPI_ERR_ASSERT, qmxErrorClass(QMX_MPI_Win_fence(1, block.window)))
        << "an assertion bit the wrapper does not define was passed on";
    release(block);
}

TEST(SharedWindows, PassiveSynchronisationOrdersWrites) {
    const int size = worldSize();
    const int rank = worldRank();
    SharedBlock block = allocateOnFirstRank(static_cast<QMX_MPI_Aint>(size * sizeof(int)));
    ASSERT_QMX_OK(QMX_MPI_Win_lock_all(QMX_MPI_MODE_NOCHECK, block.window));
    block.base[rank] = payload(rank, 2);
    ASSERT_QMX_OK(QMX_MPI_Win_sync(block.window));
    ASSERT_QMX_OK(QMX_MPI_Barrier(block.comm));
    ASSERT_QMX_OK(QMX_MPI_Win_sync(block.window));
    EXPECT_EQ(payloadOfEveryRank(2), std::vector<int>(block.base, block.base + size));
    ASSERT_QMX_OK(QMX_MPI_Win_unlock_all(block.window));

    ASSERT_QMX_OK(QMX_MPI_Win_lock(QMX_MPI_LOCK_SHARED, 0, 0, block.window));
    ASSERT_QMX_OK(QMX_MPI_Win_unlock(0, block.window));
    EXPECT_EQ(QMX_MPI_ERR_LOCKTYPE, qmxErrorClass(QMX_MPI_Win_lock(1, 0, 0, block.window)));
    release(block);
}

}  // namespace
}  // namespace tolm::mpitest
