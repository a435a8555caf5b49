#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "machine/comm/DerivedDatatype.h"
#include "machine/comm/MpiCore.h"
#include "machine/comm/RequestStack.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "neo/NonRecoverableError.h"
#include "support/Failure.h"

namespace tolm {
namespace {

std::string messageOf(const std::function<void()>& action) {
    return test::errorOf<Error>(action);
}

int rank() {
    return static_cast<int>(Machine::getPartitionId());
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

TEST(RequestStack, WaitAnyAndTestRemoveWhatCompleted) {
    int value = rank();
    int received = -1;
    MpiCore::RequestStack requests;
    EXPECT_EQ(requests.pop(), QMX_MPI_REQUEST_NULL);
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

TEST(RequestStack, CopyingANonEmptyStackAndClearingLiveRequestsFail) {
    int received = 0;
    MpiCore::RequestStack requests;
    MpiCore::handleError(
        QMX_MPI_Irecv(&received, 1, QMX_MPI_INT, rank(), 9, world(), requests.push_back()));
    EXPECT_EQ(test::failureOf([&] { MpiCore::RequestStack copy(requests); }),
              "Cannot copy or assign non-empty request stacks | "
              "this->_requests.empty() && rhs._requests.empty()");
    EXPECT_TRUE(
        test::failureOf([&] { requests.clear(); }).starts_with("Clearing non-null Request! | "));
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
