// Derived datatypes through the wrapper: a record with padding, its extent and size, and slot
// reuse.
#include <gtest/gtest.h>

#include <cstddef>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

struct Record {
    int id;
    double value;
    char tag;
};

// The record's type the way callers build it: struct, then resized to the C++ size.
int makeRecordType() {
    const int blockLengths[3] = {1, 1, 1};
    const QMX_MPI_Aint displacements[3] = {offsetof(Record, id), offsetof(Record, value),
                                           offsetof(Record, tag)};
    const int types[3] = {QMX_MPI_INT, QMX_MPI_DOUBLE, QMX_MPI_CHAR};
    int packed = QMX_MPI_DATATYPE_NULL;
    EXPECT_QMX_OK(QMX_MPI_Type_create_struct(3, blockLengths, displacements, types, &packed));
    int resized = QMX_MPI_DATATYPE_NULL;
    EXPECT_QMX_OK(QMX_MPI_Type_create_resized(packed, 0, sizeof(Record), &resized));
    EXPECT_QMX_OK(QMX_MPI_Type_free(&packed));
    EXPECT_QMX_OK(QMX_MPI_Type_commit(&resized));
    return resized;
}

// Records of such a type travel at the Communicator level (DerivedDatatype in MpiCoreTest).
TEST(Datatypes, StructTypeHasTheRecordsExtentAndItsSlotIsReused) {
    const int recordType = makeRecordType();
    ASSERT_GT(recordType, QMX_MPI_PACKED) << "a user datatype took a predefined handle";
    QMX_MPI_Aint lowerBound = -1;
    QMX_MPI_Aint extent = -1;
    ASSERT_QMX_OK(QMX_MPI_Type_get_extent(recordType, &lowerBound, &extent));
    EXPECT_EQ(0, lowerBound);
    EXPECT_EQ(static_cast<QMX_MPI_Aint>(sizeof(Record)), extent);
    int size = 0;
    ASSERT_QMX_OK(QMX_MPI_Type_size(recordType, &size));
    EXPECT_EQ(static_cast<int>(sizeof(int) + sizeof(double) + sizeof(char)), size);

    int freed = recordType;
    ASSERT_QMX_OK(QMX_MPI_Type_free(&freed));
    EXPECT_EQ(QMX_MPI_DATATYPE_NULL, freed);
    int again = QMX_MPI_DATATYPE_NULL;
    ASSERT_QMX_OK(QMX_MPI_Type_contiguous(2, QMX_MPI_INT, &again));
    EXPECT_EQ(recordType, again) << "a freed datatype slot was not reused";
    ASSERT_QMX_OK(QMX_MPI_Type_free(&again));
}

}  // namespace
}  // namespace tolm::mpitest
