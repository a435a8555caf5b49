// Collectives through the wrapper: in-place buffers and predefined handles are translated, and
// user operations run in rank order. The datatype handle a user operation gets is the
// Communicator tests' (Collectives.UserReductionsSeeTheRecordType).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

std::size_t at(int index) {
    return static_cast<std::size_t>(index);
}

// Data movement and splitting are the Communicator tests' (tests/mpi/machine); here what the
// wrapper translates: in-place buffers in either position, and predefined handles the
// Communicator never passes.
TEST(Collectives, InPlaceBuffersAndPredefinedHandlesAreTranslated) {
    const int rank = worldRank();
    const int size = worldSize();
    const int root = size - 1;
    std::vector<int> blocks = rank == root ? std::vector<int>() : std::vector<int>(2, -1);
    for (int r = 0; rank == root && r < size; ++r) {
        const auto block = payloads(r, 2);
        blocks.insert(blocks.end(), block.begin(), block.end());
    }
    const std::vector<int> sent = blocks;
    ASSERT_QMX_OK(QMX_MPI_Scatter(sent.data(), 2, QMX_MPI_INT,
                                  rank == root ? QMX_MPI_IN_PLACE : blocks.data(), 2, QMX_MPI_INT,
                                  root, QMX_MPI_COMM_WORLD));
    EXPECT_EQ(rank == root ? sent : payloads(rank, 2), blocks) << "the root keeps its block";

    std::vector<int> all(at(size), -1);
    all[at(rank)] = payload(rank, 5);
    ASSERT_QMX_OK(QMX_MPI_Allgather(QMX_MPI_IN_PLACE, 0, QMX_MPI_INT, all.data(), 1, QMX_MPI_INT,
                                    QMX_MPI_COMM_WORLD));
    EXPECT_EQ(payloadOfEveryRank(5), all);

    long long factor = rank + 2;
    long long product = -1;
    ASSERT_QMX_OK(
        QMX_MPI_Exscan(&factor, &product, 1, QMX_MPI_LONG_LONG, QMX_MPI_PROD, QMX_MPI_COMM_WORLD));
    long long expected = 1;
    for (int r = 0; r < rank; ++r)
        expected *= r + 2;
    if (rank > 0) {
        EXPECT_EQ(expected, product);
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

void userMax(void* in, void* inout, int* len, int*) {
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

void matrixProduct(void* in, void* inout, int* len, int*) {
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
// commutative, so rank order matters) and a maximum over ints; operation and datatype slots
// are reused once freed.
TEST(Collectives, UserOperationsRunInRankOrderAndTheirSlotsAreReused) {
    const int rank = worldRank();
    int product = QMX_MPI_OP_NULL;
    int maximum = QMX_MPI_OP_NULL;
    ASSERT_QMX_OK(QMX_MPI_Op_create(&matrixProduct, 0, &product));
    ASSERT_QMX_OK(QMX_MPI_Op_create(&userMax, 1, &maximum));
    int matrixType = QMX_MPI_DATATYPE_NULL;
    ASSERT_QMX_OK(QMX_MPI_Type_contiguous(4, QMX_MPI_LONG_LONG, &matrixType));
    ASSERT_QMX_OK(QMX_MPI_Type_commit(&matrixType));
    ASSERT_GT(matrixType, QMX_MPI_PACKED) << "a user datatype took a predefined handle";

    Matrix mine = matrixOfRank(rank);
    Matrix reduced{};
    ASSERT_QMX_OK(QMX_MPI_Reduce(&mine, &reduced, 1, matrixType, product, 0, QMX_MPI_COMM_WORLD));
    Matrix prefix = matrixOfRank(rank);
    ASSERT_QMX_OK(
        QMX_MPI_Scan(QMX_MPI_IN_PLACE, &prefix, 1, matrixType, product, QMX_MPI_COMM_WORLD));
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

    const int freed = maximum;
    ASSERT_QMX_OK(QMX_MPI_Op_free(&maximum));
    EXPECT_EQ(QMX_MPI_OP_NULL, maximum);
    ASSERT_QMX_OK(QMX_MPI_Op_create(&userMax, 1, &maximum));
    EXPECT_EQ(freed, maximum) << "a freed operation slot was not reused";
    for (int* op : {&maximum, &product}) {
        ASSERT_QMX_OK(QMX_MPI_Op_free(op));
    }
    int bytes = 0;
    ASSERT_QMX_OK(QMX_MPI_Type_size(matrixType, &bytes));
    EXPECT_EQ(static_cast<int>(sizeof(Matrix)), bytes);
    const int freedType = matrixType;
    ASSERT_QMX_OK(QMX_MPI_Type_free(&matrixType));
    EXPECT_EQ(QMX_MPI_DATATYPE_NULL, matrixType);
    ASSERT_QMX_OK(QMX_MPI_Type_contiguous(2, QMX_MPI_INT, &matrixType));
    EXPECT_EQ(freedType, matrixType) << "a freed datatype slot was not reused";
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
