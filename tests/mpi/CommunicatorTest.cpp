// Communicator and group handles through the wrapper: identity, creation, slot reuse, and the
// special values (undefined colour, shared-memory split) that must be translated per MPI.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

// The world ranks of the members of comm, in the order of their ranks in comm.
std::vector<int> worldRanksOf(int comm) {
    int size = 0;
    EXPECT_QMX_OK(QMX_MPI_Comm_size(comm, &size));
    std::vector<int> ranks(static_cast<std::size_t>(size), -1);
    const int mine = worldRank();
    EXPECT_QMX_OK(QMX_MPI_Allgather(&mine, 1, QMX_MPI_INT, ranks.data(), 1, QMX_MPI_INT, comm));
    return ranks;
}

TEST(Communicators, DupIsCongruentAndItsSlotIsReused) {
    int dup = QMX_MPI_COMM_NULL;
    ASSERT_QMX_OK(QMX_MPI_Comm_dup(QMX_MPI_COMM_WORLD, &dup));
    EXPECT_GT(dup, QMX_MPI_COMM_SELF);
    int comparison = -1;
    ASSERT_QMX_OK(QMX_MPI_Comm_compare(QMX_MPI_COMM_WORLD, dup, &comparison));
    EXPECT_EQ(QMX_MPI_CONGRUENT, comparison);
    ASSERT_QMX_OK(QMX_MPI_Comm_compare(dup, dup, &comparison));
    EXPECT_EQ(QMX_MPI_IDENT, comparison);

    const int firstHandle = dup;
    ASSERT_QMX_OK(QMX_MPI_Comm_free(&dup));
    EXPECT_EQ(QMX_MPI_COMM_NULL, dup);
    for (int i = 0; i < 50; ++i) {
        ASSERT_QMX_OK(QMX_MPI_Comm_dup(QMX_MPI_COMM_WORLD, &dup));
        ASSERT_EQ(firstHandle, dup) << "a freed communicator slot was not reused";
        ASSERT_QMX_OK(QMX_MPI_Comm_free(&dup));
    }
}

// Rank 0 gives the undefined colour, the others split into odd and even ranks in reverse
// order; the shared-memory split of the undefined type makes no communicator either.
TEST(Communicators, SplitGroupsByColourOrdersByKeyAndUndefinedMakesNone) {
    const int rank = worldRank();
    int half = QMX_MPI_COMM_WORLD;
    const int colour = rank == 0 ? QMX_MPI_UNDEFINED : rank % 2;
    ASSERT_QMX_OK(QMX_MPI_Comm_split(QMX_MPI_COMM_WORLD, colour, -rank, &half));
    if (rank == 0) {
        EXPECT_EQ(QMX_MPI_COMM_NULL, half);
    } else {
        std::vector<int> expected;
        for (int r = worldSize() - 1; r > 0; --r) {
            if (r % 2 == rank % 2)
                expected.push_back(r);
        }
        EXPECT_EQ(expected, worldRanksOf(half));
        ASSERT_QMX_OK(QMX_MPI_Comm_free(&half));
    }
    int none = QMX_MPI_COMM_WORLD;
    ASSERT_QMX_OK(QMX_MPI_Comm_split_type(QMX_MPI_COMM_WORLD, QMX_MPI_UNDEFINED, 0,
                                          QMX_MPI_INFO_NULL, &none));
    EXPECT_EQ(QMX_MPI_COMM_NULL, none);
}

// A communicator in the group's order is the Communicator tests' (createCommunicator); here
// the translated ranks and the ranks outside a group.
TEST(Communicators, GroupsTranslateRanksAndLeaveOutsidersUndefined) {
    const int size = worldSize();
    const int rank = worldRank();
    int world = QMX_MPI_GROUP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Comm_group(QMX_MPI_COMM_WORLD, &world));
    std::vector<int> reversed(static_cast<std::size_t>(size));
    std::iota(reversed.rbegin(), reversed.rend(), 0);
    int reversedGroup = QMX_MPI_GROUP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Group_incl(world, size, reversed.data(), &reversedGroup));

    std::vector<int> translated(static_cast<std::size_t>(size) + 1);
    std::vector<int> asked = reversed;
    asked.push_back(QMX_MPI_PROC_NULL);
    ASSERT_QMX_OK(QMX_MPI_Group_translate_ranks(reversedGroup, size + 1, asked.data(), world,
                                                translated.data()));
    // Position size-1-i of the reversed group is world rank i.
    for (int i = 0; i < size; ++i) {
        EXPECT_EQ(i, translated[static_cast<std::size_t>(i)]);
    }
    EXPECT_EQ(QMX_MPI_PROC_NULL, translated.back());

    const int first = 0;
    int others = QMX_MPI_GROUP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Group_excl(world, 1, &first, &others));
    int groupRank = -1;
    ASSERT_QMX_OK(QMX_MPI_Group_rank(others, &groupRank));
    EXPECT_EQ(rank == 0 ? QMX_MPI_UNDEFINED : rank - 1, groupRank);

    for (int* group : {&world, &reversedGroup, &others}) {
        ASSERT_QMX_OK(QMX_MPI_Group_free(group));
        EXPECT_EQ(QMX_MPI_GROUP_NULL, *group);
    }
}

TEST(Communicators, EmptyGroupMakesNoCommunicator) {
    int world = QMX_MPI_GROUP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Comm_group(QMX_MPI_COMM_WORLD, &world));
    int empty = QMX_MPI_GROUP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Group_incl(world, 0, nullptr, &empty));
    EXPECT_EQ(QMX_MPI_GROUP_EMPTY, empty);
    int size = -1;
    ASSERT_QMX_OK(QMX_MPI_Group_size(empty, &size));
    EXPECT_EQ(0, size);
    int comm = QMX_MPI_COMM_WORLD;
    ASSERT_QMX_OK(QMX_MPI_Comm_create(QMX_MPI_COMM_WORLD, empty, &comm));
    EXPECT_EQ(QMX_MPI_COMM_NULL, comm);
    ASSERT_QMX_OK(QMX_MPI_Group_free(&empty));
    ASSERT_QMX_OK(QMX_MPI_Group_free(&world));
}

TEST(Communicators, TagUpperBoundIsAnAttributeOfTheWorld) {
    int* upperBound = nullptr;
    int found = 0;
    ASSERT_QMX_OK(QMX_MPI_Comm_get_attr(QMX_MPI_COMM_WORLD, QMX_MPI_TAG_UB, &upperBound, &found));
    ASSERT_TRUE(found);
    EXPECT_GE(*upperBound, 32767);
    EXPECT_EQ(QMX_MPI_ERR_KEYVAL,
              qmxErrorClass(QMX_MPI_Comm_get_attr(QMX_MPI_COMM_WORLD, 99, &upperBound, &found)));
}

}  // namespace
}  // namespace tolm::mpitest
