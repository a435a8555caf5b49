// Requests and statuses through the wrapper: request handles released on completion and
// reused, statuses in the order of their requests, and the special values (no request left,
// PROC_NULL, cancelled). Messages themselves are the Communicator tests' (tests/mpi/machine).
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

int rightNeighbour() {
    return (worldRank() + 1) % worldSize();
}
int leftNeighbour() {
    return (worldRank() + worldSize() - 1) % worldSize();
}

// 256 receives and 256 sends in flight at once, sent in the reverse order of the receives.
void exchangeManyMessages(int& highestHandle) {
    constexpr int messages = 256;
    const int rank = worldRank();
    std::vector<int> requests(2 * messages, QMX_MPI_REQUEST_NULL);
    std::vector<int> received(messages, -1);
    std::vector<int> sent(messages, rank);
    for (int tag = 0; tag < messages; ++tag) {
        ASSERT_QMX_OK(QMX_MPI_Irecv(&received[static_cast<std::size_t>(tag)], 1, QMX_MPI_INT,
                                    leftNeighbour(), tag, QMX_MPI_COMM_WORLD,
                                    &requests[static_cast<std::size_t>(tag)]));
    }
    for (int tag = messages - 1; tag >= 0; --tag) {
        ASSERT_QMX_OK(QMX_MPI_Isend(&sent[static_cast<std::size_t>(tag)], 1, QMX_MPI_INT,
                                    rightNeighbour(), tag, QMX_MPI_COMM_WORLD,
                                    &requests[static_cast<std::size_t>(messages + tag)]));
    }
    highestHandle = *std::max_element(requests.begin(), requests.end());
    EXPECT_EQ(requests.size(), std::set<int>(requests.begin(), requests.end()).size())
        << "two requests in flight share a handle";
    std::vector<QMX_MPI_Status_struct> statuses(requests.size());
    ASSERT_QMX_OK(QMX_MPI_Waitall(2 * messages, requests.data(), statuses.data()));
    EXPECT_EQ(std::vector<int>(requests.size(), QMX_MPI_REQUEST_NULL), requests);
    for (int tag = 0; tag < messages; ++tag) {
        ASSERT_EQ(tag, statuses[static_cast<std::size_t>(tag)].MPI_TAG) << "statuses out of order";
    }
}

TEST(PointToPoint, ManyRequestsInFlightAreReleasedAndReused) {
    int firstHighest = 0;
    exchangeManyMessages(firstHighest);
    for (int round = 0; round < 3; ++round) {
        int highest = 0;
        exchangeManyMessages(highest);
        EXPECT_LE(highest, firstHighest) << "completed requests did not give their slots back";
    }
}

TEST(PointToPoint, PersistentRequestsStayValidUntilFreed) {
    const int rank = worldRank();
    int outgoing = 0;
    int incoming = -1;
    int requests[2];
    ASSERT_QMX_OK(QMX_MPI_Recv_init(&incoming, 1, QMX_MPI_INT, leftNeighbour(), 9,
                                    QMX_MPI_COMM_WORLD, &requests[0]));
    ASSERT_QMX_OK(QMX_MPI_Send_init(&outgoing, 1, QMX_MPI_INT, rightNeighbour(), 9,
                                    QMX_MPI_COMM_WORLD, &requests[1]));
    const int handles[2] = {requests[0], requests[1]};
    for (int round = 0; round < 2; ++round) {
        outgoing = payload(rank, round);
        ASSERT_QMX_OK(QMX_MPI_Startall(2, requests));
        ASSERT_QMX_OK(QMX_MPI_Waitall(2, requests, QMX_MPI_STATUSES_IGNORE));
        EXPECT_EQ(payload(leftNeighbour(), round), incoming);
        EXPECT_EQ(handles[0], requests[0]) << "a persistent request was released on completion";
        EXPECT_EQ(handles[1], requests[1]);
    }
    for (int& request : requests) {
        ASSERT_QMX_OK(QMX_MPI_Request_free(&request));
        EXPECT_EQ(QMX_MPI_REQUEST_NULL, request);
    }
}

// Receives from this rank itself, matched by synchronous sends posted in reverse order.
TEST(PointToPoint, WaitanyAndTestanyReturnEachCompletionOnce) {
    const int rank = worldRank();
    constexpr int count = 4;
    int received[count] = {-1, -1, -1, -1};
    int sent[count];
    int receives[count];
    int sends[count];
    for (int tag = 0; tag < count; ++tag) {
        sent[tag] = payload(rank, tag);
        ASSERT_QMX_OK(QMX_MPI_Irecv(&received[tag], 1, QMX_MPI_INT, rank, tag, QMX_MPI_COMM_WORLD,
                                    &receives[tag]));
    }
    for (int tag = count - 1; tag >= 0; --tag) {
        ASSERT_QMX_OK(
            QMX_MPI_Issend(&sent[tag], 1, QMX_MPI_INT, rank, tag, QMX_MPI_COMM_WORLD, &sends[tag]));
    }
    std::set<int> completed;
    for (int i = 0; i < count; ++i) {
        int index = -1;
        QMX_MPI_Status_struct status{};
        ASSERT_QMX_OK(QMX_MPI_Waitany(count, receives, &index, &status));
        ASSERT_GE(index, 0);
        EXPECT_EQ(QMX_MPI_REQUEST_NULL, receives[index]);
        EXPECT_EQ(index, status.MPI_TAG);
        EXPECT_EQ(payload(rank, index), received[index]);
        completed.insert(index);
    }
    EXPECT_EQ(static_cast<std::size_t>(count), completed.size());
    int index = 0;
    ASSERT_QMX_OK(QMX_MPI_Waitany(count, receives, &index, QMX_MPI_STATUS_IGNORE));
    EXPECT_EQ(QMX_MPI_UNDEFINED, index) << "no active request is left";

    for (int done = 0, flag = 0; done < count; done += flag && index != QMX_MPI_UNDEFINED) {
        ASSERT_QMX_OK(QMX_MPI_Testany(count, sends, &index, &flag, QMX_MPI_STATUS_IGNORE));
    }
    int all = 0;
    ASSERT_QMX_OK(QMX_MPI_Testall(count, sends, &all, QMX_MPI_STATUSES_IGNORE));
    EXPECT_TRUE(all);
    EXPECT_EQ(std::vector<int>(count, QMX_MPI_REQUEST_NULL),
              std::vector<int>(sends, sends + count));
}

TEST(PointToPoint, ProcNullAndCancelledReceivesCompleteWithTheirStatus) {
    int value = 0;
    QMX_MPI_Status_struct status{};
    ASSERT_QMX_OK(
        QMX_MPI_Recv(&value, 1, QMX_MPI_INT, QMX_MPI_PROC_NULL, 3, QMX_MPI_COMM_WORLD, &status));
    EXPECT_EQ(QMX_MPI_PROC_NULL, status.MPI_SOURCE);
    EXPECT_EQ(QMX_MPI_ANY_TAG, status.MPI_TAG);
    int count = -1;
    ASSERT_QMX_OK(QMX_MPI_Get_count(&status, QMX_MPI_INT, &count));
    EXPECT_EQ(0, count);

    int request = QMX_MPI_REQUEST_NULL;
    ASSERT_QMX_OK(QMX_MPI_Irecv(&value, 1, QMX_MPI_INT, QMX_MPI_ANY_SOURCE, 999, QMX_MPI_COMM_WORLD,
                                &request));
    ASSERT_QMX_OK(QMX_MPI_Cancel(&request));
    ASSERT_QMX_OK(QMX_MPI_Wait(&request, &status));
    EXPECT_EQ(QMX_MPI_REQUEST_NULL, request);
    int cancelled = 0;
    ASSERT_QMX_OK(QMX_MPI_Test_cancelled(&status, &cancelled));
    EXPECT_TRUE(cancelled);
}

}  // namespace
}  // namespace tolm::mpitest
