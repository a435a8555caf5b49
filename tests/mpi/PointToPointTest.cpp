// Messages and requests through the wrapper: statuses (source, tag, count) translated back
// from each MPI, and request handles that are released on completion and reused.
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

TEST(PointToPoint, RingExchangeReportsSourceTagAndCounts) {
    const int rank = worldRank();
    const std::vector<int> ints = payloads(rank, 37);
    const std::vector<double> sent(ints.begin(), ints.end());
    std::vector<double> received(40, -1.0);
    QMX_MPI_Status_struct status{};
    ASSERT_QMX_OK(QMX_MPI_Sendrecv(sent.data(), 37, QMX_MPI_DOUBLE, rightNeighbour(), 300 + rank,
                                   received.data(), 40, QMX_MPI_DOUBLE, leftNeighbour(),
                                   QMX_MPI_ANY_TAG, QMX_MPI_COMM_WORLD, &status));
    EXPECT_EQ(leftNeighbour(), status.MPI_SOURCE);
    EXPECT_EQ(300 + leftNeighbour(), status.MPI_TAG);
    EXPECT_EQ(QMX_MPI_SUCCESS, status.MPI_ERROR);
    const std::vector<int> expected = payloads(leftNeighbour(), 37);
    received.resize(37);
    EXPECT_EQ(std::vector<double>(expected.begin(), expected.end()), received);

    int count = -1;
    ASSERT_QMX_OK(QMX_MPI_Get_count(&status, QMX_MPI_DOUBLE, &count));
    EXPECT_EQ(37, count);
    ASSERT_QMX_OK(QMX_MPI_Get_count(&status, QMX_MPI_BYTE, &count));
    EXPECT_EQ(37 * 8, count);
    ASSERT_QMX_OK(QMX_MPI_Get_count(&status, QMX_MPI_INT, &count));
    EXPECT_EQ(37 * 2, count);
    int threeDoubles = QMX_MPI_DATATYPE_NULL;
    ASSERT_QMX_OK(QMX_MPI_Type_contiguous(3, QMX_MPI_DOUBLE, &threeDoubles));
    ASSERT_QMX_OK(QMX_MPI_Type_commit(&threeDoubles));
    ASSERT_QMX_OK(QMX_MPI_Get_count(&status, threeDoubles, &count));
    EXPECT_EQ(QMX_MPI_UNDEFINED, count) << "37 doubles are no whole number of 3-double elements";
    ASSERT_QMX_OK(QMX_MPI_Type_free(&threeDoubles));
}

// 256 receives and 256 sends in flight at once, sent in the reverse order of the receives.
void exchangeManyMessages(int& highestHandle) {
    constexpr int messages = 256;
    const int rank = worldRank();
    std::vector<int> requests(2 * messages, QMX_MPI_REQUEST_NULL);
    std::vector<int> received(messages, -1);
    std::vector<int> sent(messages);
    for (int tag = 0; tag < messages; ++tag) {
        ASSERT_QMX_OK(QMX_MPI_Irecv(&received[static_cast<std::size_t>(tag)], 1, QMX_MPI_INT,
                                    leftNeighbour(), tag, QMX_MPI_COMM_WORLD,
                                    &requests[static_cast<std::size_t>(tag)]));
    }
    for (int tag = messages - 1; tag >= 0; --tag) {
        sent[static_cast<std::size_t>(tag)] = payload(rank, tag);
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
        const auto& status = statuses[static_cast<std::size_t>(tag)];
        ASSERT_EQ(payload(leftNeighbour(), tag), received[static_cast<std::size_t>(tag)]);
        ASSERT_EQ(tag, status.MPI_TAG);
        ASSERT_EQ(leftNeighbour(), status.MPI_SOURCE);
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
    for (int round = 0; round < 4; ++round) {
        outgoing = payload(rank, round);
        if (round % 2 == 0) {
            ASSERT_QMX_OK(QMX_MPI_Startall(2, requests));
            ASSERT_QMX_OK(QMX_MPI_Waitall(2, requests, QMX_MPI_STATUSES_IGNORE));
        } else {
            ASSERT_QMX_OK(QMX_MPI_Start(&requests[0]));
            ASSERT_QMX_OK(QMX_MPI_Start(&requests[1]));
            ASSERT_QMX_OK(QMX_MPI_Wait(&requests[1], QMX_MPI_STATUS_IGNORE));
            ASSERT_QMX_OK(QMX_MPI_Wait(&requests[0], QMX_MPI_STATUS_IGNORE));
        }
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
