#include <gtest/gtest.h>

#include <vector>

#include "machine/DerivedDatatype.h"
#include "machine/Machine.h"
#include "machine/MpiCore.h"
#include "machine/PersistentRequestStack.h"
#include "machine/RequestStack.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"

namespace tolm {
namespace {

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "no error";
}

int rank() {
    return static_cast<int>(Machine::getPartitionId());
}
int size() {
    return static_cast<int>(Machine::nProcesses());
}
int world() {
    return QMX_MPI_COMM_WORLD;
}

TEST(MpiCore, HandleErrorTexts) {
    EXPECT_NO_THROW(MpiCore::handleError(QMX_MPI_SUCCESS));
    const std::string rankText = MpiCore::errorString(QMX_MPI_ERR_RANK);
    EXPECT_FALSE(rankText.empty());
    EXPECT_EQ(messageOf([] { MpiCore::handleError(QMX_MPI_ERR_RANK); }), "MPI Error : " + rankText);
    EXPECT_THROW(MpiCore::handleError(QMX_MPI_ERR_RANK), NonRecoverableError);

    const std::vector<QMX_MPI_Status_struct> none;
    EXPECT_EQ(messageOf([&] { MpiCore::handleError(QMX_MPI_ERR_RANK, none); }),
              "MPI Error : MPI Errors[6] :" + rankText);
    std::vector<QMX_MPI_Status_struct> statuses(3);
    EXPECT_EQ(messageOf([&] { MpiCore::handleError(QMX_MPI_ERR_IN_STATUS, statuses); }),
              "MPI Error : MPI Errors[17] :");
    statuses[1].MPI_ERROR = QMX_MPI_ERR_TAG;
    EXPECT_EQ(
        messageOf([&] { MpiCore::handleError(QMX_MPI_ERR_IN_STATUS, statuses); }),
        "MPI Error : MPI Errors[17] :Status index[1] :" + MpiCore::errorString(QMX_MPI_ERR_TAG));
}

TEST(MpiCore, AFailingWrapperCallBecomesANonRecoverableError) {
    int value = 0;
    // A send to a rank outside the communicator is refused by MPI with an error code.
    EXPECT_EQ(
        messageOf([&] {
            MpiCore::handleError(QMX_MPI_Send(&value, 1, QMX_MPI_INT, size() + 5, 0, world()));
        }).rfind("MPI Error : ", 0),
        0u);
}

TEST(MpiCore, SharedMemoryAndDriverNames) {
    EXPECT_TRUE(MpiCore::hasMpiSharedMemory());
    EXPECT_FALSE(MpiCore::getDistribName().empty());
    EXPECT_FALSE(MpiCore::getMpiVersionName().empty());
}

TEST(RequestStack, RingExchangeWithRankDependentPayloads) {
    const int next = (rank() + 1) % size();
    const int previous = (rank() + size() - 1) % size();
    std::vector<int> outgoing{rank() * 100 + 1, rank() * 100 + 2};
    std::vector<int> incoming(2, -1);
    MpiCore::RequestStack requests;
    EXPECT_EQ(requests.pop(), QMX_MPI_REQUEST_NULL);
    MpiCore::handleError(
        QMX_MPI_Irecv(incoming.data(), 2, QMX_MPI_INT, previous, 7, world(), requests.push_back()));
    MpiCore::handleError(
        QMX_MPI_Isend(outgoing.data(), 2, QMX_MPI_INT, next, 7, world(), requests.push_back()));
    std::vector<unsigned int> sources{99};
    requests.wait(sources);
    EXPECT_TRUE(requests.empty());
    ASSERT_EQ(sources.size(), 2u);
    EXPECT_EQ(sources[0], unsigned(previous));
    EXPECT_EQ(incoming, (std::vector<int>{previous * 100 + 1, previous * 100 + 2}));
}

TEST(RequestStack, WaitAnyAndTestRemoveWhatCompleted) {
    int value = rank();
    int received = -1;
    MpiCore::RequestStack requests;
    MpiCore::handleError(
        QMX_MPI_Irecv(&received, 1, QMX_MPI_INT, rank(), 3, world(), requests.push_back()));
    MpiCore::handleError(
        QMX_MPI_Isend(&value, 1, QMX_MPI_INT, rank(), 3, world(), requests.push_back()));
    unsigned int index = 99;
    requests.waitAny(index);
    EXPECT_LT(index, 2u);
    EXPECT_EQ(requests.size(), 1u);
    while (!requests.test()) {
    }
    EXPECT_TRUE(requests.empty());
    EXPECT_EQ(received, rank());
}

TEST(RequestStack, PersistentRequestsRunAgainAndAreFreedAtTheEnd) {
    int received = -1;
    MpiCore::PersistentRequestStack receives;
    MpiCore::handleError(
        QMX_MPI_Recv_init(&received, 1, QMX_MPI_INT, rank(), 5, world(), receives.push_back()));
    for (int round = 0; round < 2; ++round) {
        int value = rank() * 10 + round;
        receives.start();
        MpiCore::handleError(QMX_MPI_Send(&value, 1, QMX_MPI_INT, rank(), 5, world()));
        receives.wait();
        EXPECT_EQ(receives.size(), 1u) << "a persistent request stays for the next round";
        EXPECT_EQ(received, rank() * 10 + round);
    }
    receives.clear();
    EXPECT_TRUE(receives.empty());
}

TEST(RequestStack, CopyingANonEmptyStackAndClearingLiveRequestsFail) {
    int received = 0;
    MpiCore::RequestStack requests;
    MpiCore::handleError(
        QMX_MPI_Irecv(&received, 1, QMX_MPI_INT, rank(), 9, world(), requests.push_back()));
    try {
        MpiCore::RequestStack copy(requests);
        FAIL();
    } catch (const InternalError& error) {
        EXPECT_STREQ(error.what(), "Cannot copy or assign non-empty request stacks");
        EXPECT_EQ(error.getCondition(), "this->_requests.empty() && rhs._requests.empty()");
    }
    try {
        requests.clear();
        FAIL();
    } catch (const InternalError& error) {
        EXPECT_STREQ(error.what(), "Clearing non-null Request!");
    }
    requests.cancel();
    EXPECT_TRUE(requests.empty());
}

TEST(DerivedDatatype, CommitResizesOnlyWhenTheExtentDiffers) {
    int contiguous = MpiCore::DerivedDatatype::defineMpiContiguousType(3, QMX_MPI_INT);
    MpiCore::DerivedDatatype::commitMpiType(3 * sizeof(int), contiguous);
    QMX_MPI_Aint lowerBound = -1, extent = 0;
    MpiCore::handleError(QMX_MPI_Type_get_extent(contiguous, &lowerBound, &extent));
    EXPECT_EQ(extent, QMX_MPI_Aint(3 * sizeof(int)));
    MpiCore::DerivedDatatype::freeMpiType(contiguous);

    struct Record {
        double value;
        char flag;
    };
    const int lengths[] = {1, 1};
    const std::int64_t displacements[] = {0, offsetof(Record, flag)};
    const int types[] = {QMX_MPI_DOUBLE, QMX_MPI_CHAR};
    int record = MpiCore::DerivedDatatype::defineMpiStructType(2, lengths, displacements, types);
    MpiCore::DerivedDatatype::commitMpiType(sizeof(Record), record);
    std::vector<Record> values(2, Record{double(rank()), char('a' + rank())});
    MpiCore::handleError(QMX_MPI_Bcast(values.data(), 2, record, 0, world()));
    EXPECT_EQ(values[1].value, 0.0);
    EXPECT_EQ(values[1].flag, 'a');
    MpiCore::DerivedDatatype::freeMpiType(record);
}

}  // namespace
}  // namespace tolm
