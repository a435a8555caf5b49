// MPI-IO through the wrapper: file pointers, sizes, statuses, info objects, and open modes
// translated to each MPI's own bits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/MpiWorld.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {
namespace {

// What is read back, collective transfers and the file size are checked at the ParallelFile
// level (ParallelFileTest); here the status, seeks, sizes, sync and deletion the machine layer
// does not use.
TEST(FileIo, IndividualFilePointerAdvancesByWhatWasTransferred) {
    const int rank = worldRank();
    const std::string name =
        (std::filesystem::temp_directory_path() / ("tolm-mpiio-" + std::to_string(getpid())))
            .string();
    int file = QMX_MPI_FILE_NULL;
    ASSERT_QMX_OK(
        QMX_MPI_File_open(QMX_MPI_COMM_SELF, name.c_str(),
                          QMX_MPI_MODE_CREATE | QMX_MPI_MODE_RDWR | QMX_MPI_MODE_DELETE_ON_CLOSE,
                          QMX_MPI_INFO_NULL, &file));
    const std::vector<int> values = payloads(rank, 10);
    QMX_MPI_Status_struct status{};
    ASSERT_QMX_OK(QMX_MPI_File_write(file, values.data(), 10, QMX_MPI_INT, &status));
    int count = 0;
    ASSERT_QMX_OK(QMX_MPI_Get_count(&status, QMX_MPI_INT, &count));
    EXPECT_EQ(10, count);
    QMX_MPI_Offset position = -1;
    ASSERT_QMX_OK(QMX_MPI_File_get_position(file, &position));
    EXPECT_EQ(40, position);
    QMX_MPI_Offset byteOffset = -1;
    ASSERT_QMX_OK(QMX_MPI_File_get_byte_offset(file, position, &byteOffset));
    EXPECT_EQ(40, byteOffset);

    ASSERT_QMX_OK(QMX_MPI_File_seek(file, 8, QMX_MPI_SEEK_SET));
    std::vector<int> read(2, -1);
    ASSERT_QMX_OK(QMX_MPI_File_read(file, read.data(), 2, QMX_MPI_INT, QMX_MPI_STATUS_IGNORE));
    EXPECT_EQ(payloads(rank, 2, 2), read);
    ASSERT_QMX_OK(QMX_MPI_File_seek(file, -4, QMX_MPI_SEEK_END));
    ASSERT_QMX_OK(QMX_MPI_File_read(file, read.data(), 1, QMX_MPI_INT, QMX_MPI_STATUS_IGNORE));
    EXPECT_EQ(payload(rank, 9), read[0]);
    EXPECT_EQ(QMX_MPI_ERR_ARG, QMX_MPI_File_seek(file, 0, 1)) << "undefined whence";

    ASSERT_QMX_OK(QMX_MPI_File_set_size(file, 12));
    ASSERT_QMX_OK(QMX_MPI_File_sync(file));
    QMX_MPI_Offset fileSize = -1;
    ASSERT_QMX_OK(QMX_MPI_File_get_size(file, &fileSize));
    EXPECT_EQ(12, fileSize);
    int fileInfo = QMX_MPI_INFO_NULL;
    ASSERT_QMX_OK(QMX_MPI_File_get_info(file, &fileInfo));
    int keys = -1;
    ASSERT_QMX_OK(QMX_MPI_Info_get_nkeys(fileInfo, &keys));
    EXPECT_GE(keys, 0);
    ASSERT_QMX_OK(QMX_MPI_Info_free(&fileInfo));
    ASSERT_QMX_OK(QMX_MPI_File_close(&file));
    EXPECT_EQ(QMX_MPI_FILE_NULL, file);
    EXPECT_FALSE(std::filesystem::exists(name)) << "delete-on-close was not passed on";

    ASSERT_QMX_OK(QMX_MPI_File_open(QMX_MPI_COMM_SELF, name.c_str(),
                                    QMX_MPI_MODE_CREATE | QMX_MPI_MODE_WRONLY, QMX_MPI_INFO_NULL,
                                    &file));
    ASSERT_QMX_OK(QMX_MPI_File_close(&file));
    ASSERT_QMX_OK(QMX_MPI_File_delete(name.c_str(), QMX_MPI_INFO_NULL));
    EXPECT_FALSE(std::filesystem::exists(name));
}

TEST(FileIo, FailedOpensReturnCodesAndNoHandle) {
    int file = 12345;
    const int missing = QMX_MPI_File_open(QMX_MPI_COMM_SELF, "/nonexistent-dir/none",
                                          QMX_MPI_MODE_RDONLY, QMX_MPI_INFO_NULL, &file);
    EXPECT_NE(QMX_MPI_SUCCESS, missing);
    EXPECT_EQ(QMX_MPI_FILE_NULL, file);
    EXPECT_FALSE(qmxErrorText(missing).empty());

    EXPECT_EQ(QMX_MPI_ERR_AMODE,
              QMX_MPI_File_open(QMX_MPI_COMM_SELF, "/tmp/x", 1024, QMX_MPI_INFO_NULL, &file))
        << "a mode bit the wrapper does not define was passed on";
}

TEST(FileIo, InfoObjectsKeepTheirKeys) {
    int info = QMX_MPI_INFO_NULL;
    ASSERT_QMX_OK(QMX_MPI_Info_create(&info));
    ASSERT_QMX_OK(QMX_MPI_Info_set(info, "panfs_layout_type", "3"));
    ASSERT_QMX_OK(QMX_MPI_Info_set(info, "striping_unit", "65536"));
    ASSERT_QMX_OK(QMX_MPI_Info_delete(info, "panfs_layout_type"));
    char text[QMX_MPI_MAX_INFO_VAL];
    int found = 0;
    ASSERT_QMX_OK(QMX_MPI_Info_get(info, "striping_unit", QMX_MPI_MAX_INFO_VAL - 1, text, &found));
    EXPECT_TRUE(found);
    EXPECT_EQ(std::string("65536"), text);
    int keys = 0;
    ASSERT_QMX_OK(QMX_MPI_Info_get_nkeys(info, &keys));
    EXPECT_EQ(1, keys);
    ASSERT_QMX_OK(QMX_MPI_Info_get_nthkey(info, 0, text));
    EXPECT_EQ(std::string("striping_unit"), text);
    ASSERT_QMX_OK(QMX_MPI_Info_free(&info));
    EXPECT_EQ(QMX_MPI_INFO_NULL, info);
}

}  // namespace
}  // namespace tolm::mpitest
