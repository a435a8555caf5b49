// Failures come back as codes (never an abort), with the right class whatever the MPI's own
// numbering, and with a text.
#include <gtest/gtest.h>

#include <string>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

TEST(Errors, SendToAnInvalidRankReturnsTheRankClassWithAText) {
    const int value = 1;
    for (const int dest : {worldSize(), worldSize() + 100, -7}) {
        const int code = QMX_MPI_Send(&value, 1, QMX_MPI_INT, dest, 0, QMX_MPI_COMM_WORLD);
        EXPECT_EQ(QMX_MPI_ERR_RANK, qmxErrorClass(code)) << "destination " << dest;
        EXPECT_FALSE(qmxErrorText(code).empty());
    }
    char text[QMX_MPI_MAX_ERROR_STRING];
    int length = -1;
    const int code = QMX_MPI_Send(&value, 1, QMX_MPI_INT, worldSize(), 0, QMX_MPI_COMM_WORLD);
    ASSERT_QMX_OK(QMX_MPI_Error_string(code, text, &length));
    EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(length));
    EXPECT_NE(qmxErrorText(QMX_MPI_SUCCESS), std::string(text));
}

// Handles of no live object, and predefined objects that cannot be freed (and stay).
TEST(Errors, HandlesThatNameNoLiveObjectOrAPredefinedOneAreRefusedWithTheirClass) {
    int value = 0;
    EXPECT_EQ(QMX_MPI_ERR_COMM, QMX_MPI_Send(&value, 1, QMX_MPI_INT, 0, 0, 999));
    EXPECT_EQ(QMX_MPI_ERR_COMM, QMX_MPI_Send(&value, 1, QMX_MPI_INT, 0, 0, QMX_MPI_COMM_NULL));
    EXPECT_EQ(QMX_MPI_ERR_TYPE, QMX_MPI_Send(&value, 1, 999, 0, 0, QMX_MPI_COMM_WORLD));
    EXPECT_EQ(QMX_MPI_ERR_OP,
              QMX_MPI_Allreduce(QMX_MPI_IN_PLACE, &value, 1, QMX_MPI_INT, 999, QMX_MPI_COMM_WORLD));

    int dup = QMX_MPI_COMM_NULL;
    ASSERT_QMX_OK(QMX_MPI_Comm_dup(QMX_MPI_COMM_WORLD, &dup));
    const int stale = dup;
    ASSERT_QMX_OK(QMX_MPI_Comm_free(&dup));
    int rank = -1;
    EXPECT_EQ(QMX_MPI_ERR_COMM, QMX_MPI_Comm_rank(stale, &rank)) << "freed communicator";

    int request = QMX_MPI_REQUEST_NULL;
    int received = -1;
    ASSERT_QMX_OK(
        QMX_MPI_Isend(&value, 1, QMX_MPI_INT, worldRank(), 1, QMX_MPI_COMM_WORLD, &request));
    ASSERT_QMX_OK(QMX_MPI_Recv(&received, 1, QMX_MPI_INT, worldRank(), 1, QMX_MPI_COMM_WORLD,
                               QMX_MPI_STATUS_IGNORE));
    int completed = request;
    ASSERT_QMX_OK(QMX_MPI_Wait(&completed, QMX_MPI_STATUS_IGNORE));
    EXPECT_EQ(QMX_MPI_ERR_REQUEST, QMX_MPI_Wait(&request, QMX_MPI_STATUS_IGNORE))
        << "a completed request's handle was still live";

    int comm = QMX_MPI_COMM_WORLD;
    EXPECT_EQ(QMX_MPI_ERR_COMM, QMX_MPI_Comm_free(&comm));
    EXPECT_EQ(QMX_MPI_COMM_WORLD, comm);
    int type = QMX_MPI_INT;
    EXPECT_EQ(QMX_MPI_ERR_TYPE, QMX_MPI_Type_free(&type));
    int op = QMX_MPI_SUM;
    EXPECT_EQ(QMX_MPI_ERR_OP, QMX_MPI_Op_free(&op));
    int info = QMX_MPI_INFO_ENV;
    EXPECT_EQ(QMX_MPI_ERR_INFO, QMX_MPI_Info_free(&info));
    EXPECT_QMX_OK(QMX_MPI_Barrier(QMX_MPI_COMM_WORLD)) << "the refused free ended the world";
}

TEST(Errors, TruncatedReceiveReportsTruncationInItsStatus) {
    const int rank = worldRank();
    const std::vector<int> sent = payloads(rank, 10);
    int request = QMX_MPI_REQUEST_NULL;
    ASSERT_QMX_OK(
        QMX_MPI_Isend(sent.data(), 10, QMX_MPI_INT, rank, 2, QMX_MPI_COMM_WORLD, &request));
    int received[5];
    QMX_MPI_Status_struct status{};
    const int code = QMX_MPI_Recv(received, 5, QMX_MPI_INT, rank, 2, QMX_MPI_COMM_WORLD, &status);
    EXPECT_EQ(QMX_MPI_ERR_TRUNCATE, qmxErrorClass(code));
    EXPECT_EQ(code, status.MPI_ERROR);
    EXPECT_EQ(rank, status.MPI_SOURCE);
    ASSERT_QMX_OK(QMX_MPI_Wait(&request, QMX_MPI_STATUS_IGNORE));
}

// Between two ranks: Open MPI does not report truncation in Waitall for messages to self.
TEST(Errors, WaitallReportsEachRequestsErrorInItsStatus) {
    const int rank = worldRank();
    const int size = worldSize();
    if (size < 2) {
        GTEST_SKIP() << "needs a peer";
    }
    const int left = (rank + size - 1) % size;
    const std::vector<int> sent = payloads(rank, 4);
    int small[2];
    int large[4];
    int requests[2];
    ASSERT_QMX_OK(QMX_MPI_Irecv(small, 2, QMX_MPI_INT, left, 3, QMX_MPI_COMM_WORLD, &requests[0]));
    ASSERT_QMX_OK(QMX_MPI_Irecv(large, 4, QMX_MPI_INT, left, 4, QMX_MPI_COMM_WORLD, &requests[1]));
    const int right = (rank + 1) % size;
    ASSERT_QMX_OK(QMX_MPI_Send(sent.data(), 4, QMX_MPI_INT, right, 3, QMX_MPI_COMM_WORLD));
    ASSERT_QMX_OK(QMX_MPI_Send(sent.data(), 4, QMX_MPI_INT, right, 4, QMX_MPI_COMM_WORLD));

    QMX_MPI_Status_struct statuses[2]{};
    ASSERT_EQ(QMX_MPI_ERR_IN_STATUS, QMX_MPI_Waitall(2, requests, statuses));
    EXPECT_EQ(QMX_MPI_ERR_TRUNCATE, qmxErrorClass(statuses[0].MPI_ERROR));
    EXPECT_EQ(QMX_MPI_REQUEST_NULL, requests[0]);
    // The good receive either completed or is reported pending (MPICH stops at the first
    // error); a pending request must keep its handle.
    const int second = statuses[1].MPI_ERROR;
    ASSERT_TRUE(second == QMX_MPI_SUCCESS || qmxErrorClass(second) == QMX_MPI_ERR_PENDING)
        << qmxErrorText(second);
    EXPECT_EQ(second == QMX_MPI_SUCCESS, requests[1] == QMX_MPI_REQUEST_NULL);
    ASSERT_QMX_OK(QMX_MPI_Wait(&requests[1], QMX_MPI_STATUS_IGNORE));
    EXPECT_EQ(payload(left, 3), large[3]);
}

}  // namespace
}  // namespace tolm::mpitest
