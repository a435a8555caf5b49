// The wrapper's life in one process, phase by phase: no driver, a refused driver, settings
// from the environment, a loaded driver before MPI starts, MPI running, MPI finalized. The
// tests run in the order written (GoogleTest keeps the order of one source file) and each
// phase starts where the previous one left the process.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "mpiwrapper/MpiDriverLoader.h"
#include "support/MpiTestOptions.h"
#include "support/QmxAssertions.h"

extern "C" int qmxCStatusSize(void);

namespace tolm::mpitest {
namespace {

using mpiwrapper::MpiDriverLoader;

void* driverHandle() {
    static void* handle = [] {
        std::string error;
        void* opened = MpiDriverLoader::openForOption(driverOption(), error);
        EXPECT_NE(nullptr, opened) << error;
        return opened;
    }();
    return handle;
}

int commRank() {
    int rank = -1;
    return QMX_MPI_Comm_rank(QMX_MPI_COMM_WORLD, &rank);
}

int openAnyFile() {
    int file = QMX_MPI_FILE_NULL;
    return QMX_MPI_File_open(QMX_MPI_COMM_SELF, "/tmp/unused", QMX_MPI_MODE_RDONLY,
                             QMX_MPI_INFO_NULL, &file);
}

TEST(Lifecycle, BeforeAnyDriverCallsReturnNoDriver) {
    EXPECT_EQ(QMX_MPI_ERR_NO_DRIVER, commRank());
    EXPECT_EQ(QMX_MPI_ERR_NO_DRIVER, QMX_MPI_Init(nullptr, nullptr));
    int flag = -1;
    EXPECT_EQ(QMX_MPI_ERR_NO_DRIVER, QMX_MPI_Initialized(&flag));
    EXPECT_EQ(QMX_MPI_ERR_MPIO_NOT_SUPPORTED, openAnyFile());
    EXPECT_EQ(0.0, QMX_MPI_Wtime());
    EXPECT_EQ("No MPI driver is loaded: QMX_MPI_Initialize must be given a driver first",
              qmxErrorText(QMX_MPI_ERR_NO_DRIVER));
    EXPECT_EQ(QMX_MPI_ERR_NO_DRIVER, qmxErrorClass(QMX_MPI_ERR_NO_DRIVER));
    EXPECT_EQ("Invalid rank", qmxErrorText(QMX_MPI_ERR_RANK));
    int errorClass = -1;
    for (int none : {-5, 54, QMX_MPI_ERR_LASTCODE + 1}) {
        EXPECT_EQ(QMX_MPI_ERR_ARG, QMX_MPI_Error_class(none, &errorClass)) << none;
    }
    EXPECT_EQ(2147483648ULL - 4096, QMX_MPI_Get_max_buffer_size());
}

TEST(Lifecycle, LoaderFindsDriversByOptionAndNamesMissingOnes) {
    EXPECT_EQ("TolmOpenMpi4", MpiDriverLoader::libraryNameForOption("openmpi4"));
    EXPECT_EQ("TolmMpich2Ch3", MpiDriverLoader::libraryNameForOption("mpich2"));
    EXPECT_EQ("TolmPlatformMpi", MpiDriverLoader::libraryNameForOption("platform"));
    EXPECT_EQ("", MpiDriverLoader::libraryNameForOption("OpenMpi4"));

    const auto directories = MpiDriverLoader::searchDirectories();
    ASSERT_FALSE(directories.empty());
    EXPECT_EQ(std::filesystem::canonical("/proc/self/exe").parent_path(), directories.front());

    std::string error;
    EXPECT_EQ(nullptr, MpiDriverLoader::open("TolmNoSuchDriver", error));
    EXPECT_NE(std::string::npos, error.find("libTolmNoSuchDriver.so")) << error;
    EXPECT_EQ(nullptr, MpiDriverLoader::openForOption("intel", error));
    EXPECT_EQ("Unknown MPI driver: intel", error);
}

TEST(Lifecycle, LibrariesThatAreNoDriverAreRefused) {
    EXPECT_EQ(QMX_MPI_ERR_NOT_A_DRIVER, QMX_MPI_Initialize(nullptr));
    void* self = dlopen(nullptr, RTLD_NOW);
    EXPECT_EQ(QMX_MPI_ERR_NOT_A_DRIVER, QMX_MPI_Initialize(self));
    EXPECT_EQ(QMX_MPI_ERR_MPIO_NOT_SUPPORTED, QMX_MPIO_Initialize(self));
    EXPECT_EQ(QMX_MPI_ERR_NO_DRIVER, commRank()) << "a refused library changed the wrapper";
}

TEST(Lifecycle, MaxBufferSizeIsLoweredByTheEnvironmentAndBadValuesAreRefused) {
    const char* expected =
        "Invalid MPI wrapper setting: TOLM_MPI_MAX_BUFFER_SIZE=\"12x\" is invalid: expected a "
        "decimal byte count from 1 to 2147479552";
    setenv(QMX_MPI_MAX_BUFFER_SIZE_ENV, "12x", 1);
    EXPECT_EQ(QMX_MPI_ERR_BAD_ENVIRONMENT, QMX_MPI_Initialize(driverHandle()));
    EXPECT_EQ(expected, qmxErrorText(QMX_MPI_ERR_BAD_ENVIRONMENT));
    EXPECT_EQ(QMX_MPI_ERR_NO_DRIVER, commRank()) << "a refused setting still loaded the driver";

    setenv(QMX_MPI_MAX_BUFFER_SIZE_ENV, "4096", 1);
    ASSERT_QMX_OK(QMX_MPI_Initialize(driverHandle()));
    EXPECT_EQ(4096u, QMX_MPI_Get_max_buffer_size());
    for (const char* invalid :
         {"", "0", "-5", "+5", " 12", "12 ", "2147479553", "1e6", "99999999999999999999999"}) {
        setenv(QMX_MPI_MAX_BUFFER_SIZE_ENV, invalid, 1);
        EXPECT_EQ(QMX_MPI_ERR_BAD_ENVIRONMENT, QMX_MPI_Initialize(driverHandle()))
            << "value \"" << invalid << "\"";
        EXPECT_EQ(4096u, QMX_MPI_Get_max_buffer_size()) << "a refused value changed the size";
    }
    for (const unsigned int limit : {2147479552u, 1u}) {  // both ends of the range
        setenv(QMX_MPI_MAX_BUFFER_SIZE_ENV, std::to_string(limit).c_str(), 1);
        ASSERT_QMX_OK(QMX_MPI_Initialize(driverHandle()));
        EXPECT_EQ(limit, QMX_MPI_Get_max_buffer_size());
    }
    unsetenv(QMX_MPI_MAX_BUFFER_SIZE_ENV);
    ASSERT_QMX_OK(QMX_MPI_Initialize(driverHandle()));
    EXPECT_EQ(QMX_MPI_DEFAULT_MAX_BUFFER_SIZE, QMX_MPI_Get_max_buffer_size());
}

TEST(Lifecycle, CpuBindCollisionTestSwitchComesFromTheEnvironment) {
    int flag = -1;
    unsetenv(QMX_MPI_DISABLE_CPU_BIND_COLLISION_TEST_ENV);
    ASSERT_QMX_OK(QMX_MPI_disable_cpu_bind_collision_test(&flag));
    EXPECT_EQ(0, flag);
    setenv(QMX_MPI_DISABLE_CPU_BIND_COLLISION_TEST_ENV, "1", 1);
    ASSERT_QMX_OK(QMX_MPI_disable_cpu_bind_collision_test(&flag));
    EXPECT_EQ(1, flag);
    setenv(QMX_MPI_DISABLE_CPU_BIND_COLLISION_TEST_ENV, "yes", 1);
    EXPECT_EQ(QMX_MPI_ERR_BAD_ENVIRONMENT, QMX_MPI_disable_cpu_bind_collision_test(&flag));
    EXPECT_EQ(0, flag);
    EXPECT_EQ(
        "Invalid MPI wrapper setting: TOLM_MPI_DISABLE_CPU_BIND_COLLISION_TEST=\"yes\" is "
        "invalid: expected 0 or 1",
        qmxErrorText(QMX_MPI_ERR_BAD_ENVIRONMENT));
    unsetenv(QMX_MPI_DISABLE_CPU_BIND_COLLISION_TEST_ENV);
}

// Read when the driver is loaded, applied by QMX_MPI_Init (checked there, below).
TEST(Lifecycle, YieldWaitSwitchComesFromTheEnvironment) {
    setenv(QMX_MPI_YIELD_WAIT_ENV, "yes", 1);
    EXPECT_EQ(QMX_MPI_ERR_BAD_ENVIRONMENT, QMX_MPI_Initialize(driverHandle()));
    EXPECT_EQ(
        "Invalid MPI wrapper setting: TOLM_MPI_YIELD_WAIT=\"yes\" is invalid: expected 0 "
        "or 1",
        qmxErrorText(QMX_MPI_ERR_BAD_ENVIRONMENT));
    setenv(QMX_MPI_YIELD_WAIT_ENV, "1", 1);
    ASSERT_QMX_OK(QMX_MPI_Initialize(driverHandle()));
    unsetenv(QMX_MPI_YIELD_WAIT_ENV);
}

TEST(Lifecycle, LoadedDriverRefusesMpiCallsUntilInit) {
    EXPECT_EQ(QMX_MPI_ERR_NOT_INITIALIZED, commRank());
    EXPECT_EQ(QMX_MPI_ERR_MPIO_NOT_SUPPORTED, openAnyFile()) << "MPI-IO was not loaded yet";
    ASSERT_QMX_OK(QMX_MPIO_Initialize(driverHandle()));
    EXPECT_EQ(QMX_MPI_ERR_NOT_INITIALIZED, openAnyFile());
    int flag = -1;
    ASSERT_QMX_OK(QMX_MPI_Initialized(&flag));
    EXPECT_EQ(0, flag);
    EXPECT_EQ(0.0, QMX_MPI_Wtime());

    int version = 0;
    int subversion = -1;
    ASSERT_QMX_OK(QMX_MPI_Get_version(&version, &subversion));
    EXPECT_GE(version, 3) << "shared-memory windows need MPI 3";
    char name[QMX_MPI_MAX_MPI_NAME];
    int length = 0;
    ASSERT_QMX_OK(QMX_MPI_Get_mpi_name(name, &length));
    const std::string expected = driverOption() == "mpich2" ? "MPICH" : "Open MPI";
    EXPECT_EQ(expected, std::string(name, static_cast<std::size_t>(length)));
    ASSERT_QMX_OK(QMX_MPI_Get_mpi_version(name, &length));
    EXPECT_EQ('4', name[0]) << name;
}

TEST(Lifecycle, InitStartsMpiOnceAndMakesItsLibraryGlobal) {
    int provided = -1;
    ASSERT_QMX_OK(QMX_MPI_Init_thread(nullptr, nullptr, QMX_MPI_THREAD_MULTIPLE, &provided));
    EXPECT_LE(provided, QMX_MPI_THREAD_SERIALIZED) << "the handle tables are not locked";
    EXPECT_EQ(QMX_MPI_ERR_ALREADY_INITIALIZED, QMX_MPI_Init(nullptr, nullptr));
    EXPECT_QMX_OK(commRank());
    EXPECT_GT(QMX_MPI_Wtick(), 0.0) << "the clock is still refused";
    int yielding = -1;
    ASSERT_QMX_OK(QMX_MPI_Get_yield_wait(&yielding));
    EXPECT_EQ(1, yielding) << "TOLM_MPI_YIELD_WAIT=1 when the driver was loaded";
    EXPECT_EQ(QMX_MPI_ERR_ARG, QMX_MPI_Set_yield_wait(2));
    ASSERT_QMX_OK(QMX_MPI_Set_yield_wait(0));
    ASSERT_QMX_OK(QMX_MPI_Get_yield_wait(&yielding));
    EXPECT_EQ(0, yielding);
    EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, "MPI_Comm_rank"))
        << "the driver's MPI library is not in the global symbol scope";

    ASSERT_QMX_OK(QMX_MPI_Initialize(driverHandle()));
    EXPECT_QMX_OK(commRank()) << "loading the running driver again stopped MPI calls";
    EXPECT_EQ(QMX_MPI_ERR_NOT_A_DRIVER, QMX_MPI_Initialize(dlopen(nullptr, RTLD_NOW)));
    EXPECT_QMX_OK(commRank());
}

TEST(Lifecycle, AfterFinalizeCallsReturnFinalized) {
    ASSERT_QMX_OK(QMX_MPI_Finalize());
    EXPECT_EQ(QMX_MPI_ERR_FINALIZED, QMX_MPI_Finalize());
    EXPECT_EQ(QMX_MPI_ERR_FINALIZED, commRank());
    EXPECT_EQ(QMX_MPI_ERR_FINALIZED, openAnyFile());
    EXPECT_EQ(QMX_MPI_ERR_FINALIZED, QMX_MPI_Init(nullptr, nullptr));
    int flag = 0;
    ASSERT_QMX_OK(QMX_MPI_Finalized(&flag));
    EXPECT_EQ(1, flag);
    EXPECT_EQ("Message truncated on receive", qmxErrorText(QMX_MPI_ERR_TRUNCATE));
}

TEST(Lifecycle, HeaderIsValidC) {
    EXPECT_EQ(24, qmxCStatusSize());
}

}  // namespace
}  // namespace tolm::mpitest
