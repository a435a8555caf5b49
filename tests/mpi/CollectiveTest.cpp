// Collectives through the wrapper: blocks land by rank, in-place buffers are translated, and
// user operations run with the wrapper's datatype handles and in rank order.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <vector>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

std::size_t at(int index) {
    return static_cast<std::size_t>(index);
}

TEST(Collectives, BroadcastFromEveryRootDeliversThatRootsPayload) {
    for (int root = 0; root < worldSize(); ++root) {
        std::vector<int> buffer = worldRank() == root ? payloads(root, 5) : std::vector<int>(5);
        ASSERT_QMX_OK(QMX_MPI_Bcast(buffer.data(), 5, QMX_MPI_INT, root, QMX_MPI_COMM_WORLD));
        EXPECT_EQ(payloads(root, 5), buffer) << "root " << root;
    }
}

TEST(Collectives, GatherAndScatterKeepRankOrder) {
    const int rank = worldRank();
    const int size = worldSize();
    const int root = size - 1;
    std::vector<int> everyBlock;
    for (int r = 0; r < size; ++r) {
        const auto block = payloads(r, 2);
        everyBlock.insert(everyBlock.end(), block.begin(), block.end());
    }
    std::vector<int> gathered(at(2 * size), -1);
    ASSERT_QMX_OK(QMX_MPI_Gather(payloads(rank, 2).data(), 2, QMX_MPI_INT, gathered.data(), 2,
                                 QMX_MPI_INT, root, QMX_MPI_COMM_WORLD));
    if (rank == root) {
        EXPECT_EQ(everyBlock, gathered);
    }

    // Rank r's block holds r + 1 values, with a gap of one element between blocks.
    std::vector<int> counts(at(size));
    std::vector<int> displacements(at(size));
    for (int r = 0, next = 0; r < size; ++r) {
        counts[at(r)] = r + 1;
        displacements[at(r)] = next;
        next += r + 2;
    }
    std::vector<int> blocks(at(displacements.back() + size + 1), -1);
    const std::vector<int> own(at(rank + 1), payload(rank, 9));
    ASSERT_QMX_OK(QMX_MPI_Gatherv(own.data(), rank + 1, QMX_MPI_INT, blocks.data(), counts.data(),
                                  displacements.data(), QMX_MPI_INT, 0, QMX_MPI_COMM_WORLD));
    if (rank == 0) {
        for (int r = 0; r < size; ++r) {
            EXPECT_EQ(payload(r, 9), blocks[at(displacements[at(r)] + r)]);
            EXPECT_EQ(-1, blocks[at(displacements[at(r)] + r + 1)]) << "gap after block " << r;
        }
    }
    std::vector<int> back(at(rank + 1), -1);
    ASSERT_QMX_OK(QMX_MPI_Scatterv(blocks.data(), counts.data(), displacements.data(), QMX_MPI_INT,
                                   back.data(), rank + 1, QMX_MPI_INT, 0, QMX_MPI_COMM_WORLD));
    EXPECT_EQ(own, back);

    // Scatter the gathered blocks back; the root keeps its block in place.
    int scattered[2] = {-1, -1};
    ASSERT_QMX_OK(QMX_MPI_Scatter(gathered.data(), 2, QMX_MPI_INT,
                                  rank == root ? QMX_MPI_IN_PLACE : scattered, 2, QMX_MPI_INT, root,
                                  QMX_MPI_COMM_WORLD));
    if (rank == root) {
        EXPECT_EQ(everyBlock, gathered);
    } else {
        EXPECT_EQ(payloads(rank, 2), std::vector<int>(scattered, scattered + 2));
    }
}

TEST(Collectives, AllToAllPlacesEveryBlockBySourceRank) {
    const int rank = worldRank();
    const int size = worldSize();
    const std::vector<int> outgoing = payloads(rank, size);
    std::vector<int> incoming(at(size), -1);
    ASSERT_QMX_OK(QMX_MPI_Alltoall(outgoing.data(), 1, QMX_MPI_INT, incoming.data(), 1, QMX_MPI_INT,
                                   QMX_MPI_COMM_WORLD));
    EXPECT_EQ(payloadOfEveryRank(rank), incoming);

    std::vector<int> all(at(size), -1);
    all[at(rank)] = payload(rank, 5);
    ASSERT_QMX_OK(QMX_MPI_Allgather(QMX_MPI_IN_PLACE, 0, QMX_MPI_INT, all.data(), 1, QMX_MPI_INT,
                                    QMX_MPI_COMM_WORLD));
    std::vector<int> counts(at(size), 1);
    std::vector<int> reversedDisplacements(at(size));
    EXPECT_EQ(payloadOfEveryRank(5), all);
    std::iota(reversedDisplacements.rbegin(), reversedDisplacements.rend(), 0);
    std::vector<int> reversed(at(size), -1);
    const int mine = payload(rank, 6);
    ASSERT_QMX_OK(QMX_MPI_Allgatherv(&mine, 1, QMX_MPI_INT, reversed.data(), counts.data(),
                                     reversedDisplacements.data(), QMX_MPI_INT,
                                     QMX_MPI_COMM_WORLD));
    std::vector<int> received(at(size), -1);
    std::vector<int> displacements(at(size));
    std::iota(displacements.begin(), displacements.end(), 0);
    ASSERT_QMX_OK(QMX_MPI_Alltoallv(outgoing.data(), counts.data(), displacements.data(),
                                    QMX_MPI_INT, received.data(), counts.data(),
                                    reversedDisplacements.data(), QMX_MPI_INT, QMX_MPI_COMM_WORLD));
    std::reverse(reversed.begin(), reversed.end());
    std::reverse(received.begin(), received.end());
    EXPECT_EQ(payloadOfEveryRank(6), reversed);
    EXPECT_EQ(payloadOfEveryRank(rank), received);
}

TEST(Collectives, InPlaceReductionsCombineEveryRank) {
    const int rank = worldRank();
    const int size = worldSize();
    int sum = rank + 1;
    ASSERT_QMX_OK(
        QMX_MPI_Allreduce(QMX_MPI_IN_PLACE, &sum, 1, QMX_MPI_INT, QMX_MPI_SUM, QMX_MPI_COMM_WORLD));
    EXPECT_EQ(size * (size + 1) / 2, sum);

    long long product = rank + 2;
    const int root = size / 2;
    ASSERT_QMX_OK(QMX_MPI_Reduce(rank == root ? QMX_MPI_IN_PLACE : &product,
                                 rank == root ? &product : nullptr, 1, QMX_MPI_LONG_LONG,
                                 QMX_MPI_PROD, root, QMX_MPI_COMM_WORLD));
    if (rank == root) {
        long long expected = 1;
        for (int r = 0; r < size; ++r) {
            expected *= r + 2;
        }
        EXPECT_EQ(expected, product);
    }

    int prefix = rank + 1;
    ASSERT_QMX_OK(
        QMX_MPI_Scan(QMX_MPI_IN_PLACE, &prefix, 1, QMX_MPI_INT, QMX_MPI_SUM, QMX_MPI_COMM_WORLD));
    EXPECT_EQ((rank + 1) * (rank + 2) / 2, prefix);
    int before = rank + 1;
    int exclusive = -1;
    ASSERT_QMX_OK(
        QMX_MPI_Exscan(&before, &exclusive, 1, QMX_MPI_INT, QMX_MPI_SUM, QMX_MPI_COMM_WORLD));
    if (rank > 0) {
        EXPECT_EQ(rank * (rank + 1) / 2, exclusive);
    }

    // The least value is on every rank but 0; MINLOC breaks the tie with the lowest rank.
    struct {
        double value;
        int rank;
    } located{rank == 0 ? 2.0 : 1.0, rank};
    ASSERT_QMX_OK(QMX_MPI_Allreduce(QMX_MPI_IN_PLACE, &located, 1, QMX_MPI_DOUBLE_INT,
                                    QMX_MPI_MINLOC, QMX_MPI_COMM_WORLD));
    EXPECT_EQ(size > 1 ? 1.0 : 2.0, located.value);
    EXPECT_EQ(size > 1 ? 1 : 0, located.rank);
}

TEST(Collectives, ReduceScatterGivesEachRankItsShareOfTheSum) {
    const int rank = worldRank();
    const int size = worldSize();
    // Rank r receives r + 1 elements; element k of the whole vector is k + rank on this rank.
    std::vector<int> counts(at(size));
    std::iota(counts.begin(), counts.end(), 1);
    const int total = size * (size + 1) / 2;
    std::vector<int> values(at(total));
    std::iota(values.begin(), values.end(), rank);
    std::vector<int> share(at(rank + 1), -1);
    ASSERT_QMX_OK(QMX_MPI_Reduce_scatter(values.data(), share.data(), counts.data(), QMX_MPI_INT,
                                         QMX_MPI_SUM, QMX_MPI_COMM_WORLD));
    std::vector<int> expected(at(rank + 1));
    std::iota(expected.begin(), expected.end(), rank * (rank + 1) / 2);  // this rank's elements
    for (int& sum : expected)
        sum = size * sum + size * (size - 1) / 2;
    EXPECT_EQ(expected, share);
}

// The datatype handle the last user operation received; notCalled until one runs.
constexpr int notCalled = -1;
int seenDatatype = notCalled;

// Not every rank applies the operation in every reduction algorithm, so the handle is checked
// where the function ran, and at least one rank must have run it.
void expectSeenDatatype(int expected) {
    if (seenDatatype != notCalled) {
        EXPECT_EQ(expected, seenDatatype) << "the user function got no wrapper datatype handle";
    }
    int ranHere = seenDatatype != notCalled ? 1 : 0;
    int ranSomewhere = 0;
    ASSERT_QMX_OK(QMX_MPI_Allreduce(&ranHere, &ranSomewhere, 1, QMX_MPI_INT, QMX_MPI_MAX,
                                    QMX_MPI_COMM_WORLD));
    EXPECT_EQ(worldSize() > 1 ? 1 : 0, ranSomewhere);
    seenDatatype = notCalled;
}

void userMax(void* in, void* inout, int* len, int* datatype) {
    seenDatatype = *datatype;
    const int* a = static_cast<const int*>(in);
    int* b = static_cast<int*>(inout);
    for (int i = 0; i < *len; ++i) {
        b[i] = std::max(a[i], b[i]);
    }
}

// 2x2 integer matrices, multiplied: associative but not commutative. inout = in * inout, as
// MPI combines the lower ranks' value (in) with the higher ranks' (inout).
using Matrix = std::array<long long, 4>;

Matrix multiply(const Matrix& a, const Matrix& b) {
    return {a[0] * b[0] + a[1] * b[2], a[0] * b[1] + a[1] * b[3], a[2] * b[0] + a[3] * b[2],
            a[2] * b[1] + a[3] * b[3]};
}

void matrixProduct(void* in, void* inout, int* len, int* datatype) {
    seenDatatype = *datatype;
    const Matrix* a = static_cast<const Matrix*>(in);
    Matrix* b = static_cast<Matrix*>(inout);
    for (int i = 0; i < *len; ++i) {
        b[i] = multiply(a[i], b[i]);
    }
}

Matrix matrixOfRank(int rank) {
    return {rank + 1, 1, 1, 0};
}

// Two user operations alive at once: a product of matrices (a derived datatype, not
// commutative, so rank order matters) and a maximum over ints.
TEST(Collectives, UserOperationsRunInRankOrderWithTheWrappersDatatype) {
    const int rank = worldRank();
    int product = QMX_MPI_OP_NULL;
    int maximum = QMX_MPI_OP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Op_create(&matrixProduct, 0, &product));
    ASSERT_QMX_OK(QMX_MPI_Op_create(&userMax, 1, &maximum));
    int matrixType = QMX_MPI_DATATYPE_NULL;
    ASSERT_QMX_OK(QMX_MPI_Type_contiguous(4, QMX_MPI_LONG_LONG, &matrixType));
    ASSERT_QMX_OK(QMX_MPI_Type_commit(&matrixType));

    Matrix mine = matrixOfRank(rank);
    Matrix reduced{};
    ASSERT_QMX_OK(QMX_MPI_Reduce(&mine, &reduced, 1, matrixType, product, 0, QMX_MPI_COMM_WORLD));
    Matrix prefix = matrixOfRank(rank);
    ASSERT_QMX_OK(
        QMX_MPI_Scan(QMX_MPI_IN_PLACE, &prefix, 1, matrixType, product, QMX_MPI_COMM_WORLD));
    expectSeenDatatype(matrixType);
    Matrix expected = matrixOfRank(0);
    for (int r = 1; r < worldSize(); ++r) {
        expected = multiply(expected, matrixOfRank(r));
        if (r == rank) {
            EXPECT_EQ(expected, prefix);
        }
    }
    if (rank == 0) {
        EXPECT_EQ(expected, reduced);
    }

    int value = rank + 1;
    ASSERT_QMX_OK(
        QMX_MPI_Allreduce(QMX_MPI_IN_PLACE, &value, 1, QMX_MPI_INT, maximum, QMX_MPI_COMM_WORLD));
    EXPECT_EQ(worldSize(), value) << "another user function ran in place of the maximum";
    expectSeenDatatype(QMX_MPI_INT);

    const int freed = maximum;
    ASSERT_QMX_OK(QMX_MPI_Op_free(&maximum));
    EXPECT_EQ(QMX_MPI_OP_NULL, maximum);
    ASSERT_QMX_OK(QMX_MPI_Op_create(&userMax, 1, &maximum));
    EXPECT_EQ(freed, maximum) << "a freed operation slot was not reused";
    for (int* op : {&maximum, &product}) {
        ASSERT_QMX_OK(QMX_MPI_Op_free(op));
    }
    ASSERT_QMX_OK(QMX_MPI_Type_free(&matrixType));
}

TEST(Collectives, BarriersCompleteAndReleaseTheirRequest) {
    ASSERT_QMX_OK(QMX_MPI_Barrier(QMX_MPI_COMM_WORLD));
    int request = QMX_MPI_REQUEST_NULL;
    ASSERT_QMX_OK(QMX_MPI_Ibarrier(QMX_MPI_COMM_WORLD, &request));
    EXPECT_NE(QMX_MPI_REQUEST_NULL, request);
    ASSERT_QMX_OK(QMX_MPI_Wait(&request, QMX_MPI_STATUS_IGNORE));
    EXPECT_EQ(QMX_MPI_REQUEST_NULL, request);
}

}  // namespace
}  // namespace tolm::mpitest
