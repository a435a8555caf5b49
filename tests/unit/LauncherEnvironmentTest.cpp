#include "machine/core/LauncherEnvironment.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace tolm {
namespace {

// The variables of `environment` ("NAME=value NAME=value").
LauncherEnvironment::Lookup lookupIn(const std::string& environment) {
    auto variables = std::make_shared<std::map<std::string, std::string>>();
    std::istringstream words(environment);
    for (std::string word; words >> word;)
        (*variables)[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
    return [variables](const char* name) -> const char* {
        const auto found = variables->find(name);
        return found == variables->end() ? nullptr : found->second.c_str();
    };
}

struct Detection {
    const char* what;
    const char* environment;
    const char* name;  // null: no launcher found
    const char* driver;
    unsigned int processes;
    unsigned int rank;
};

// The variables are those each launcher set here (Open MPI 4.1's mpirun, MPICH 4.0's Hydra)
// or documents (Slurm's srun).
const Detection detections[] = {
    {"mpirun", "OMPI_COMM_WORLD_SIZE=4 OMPI_COMM_WORLD_RANK=2 PMIX_RANK=2", "Open MPI's mpirun",
     "openmpi4", 4, 2},
    {"hydra", "PMI_SIZE=3 PMI_RANK=1 PMI_FD=6 MPI_LOCALNRANKS=3", "MPICH's mpiexec (Hydra)",
     "mpich2", 3, 1},
    {"mpirunInASlurmStep",
     "OMPI_COMM_WORLD_SIZE=8 OMPI_COMM_WORLD_RANK=0 SLURM_STEP_ID=0 SLURM_NTASKS=1",
     "Open MPI's mpirun", "openmpi4", 8, 0},
    {"hydraInASlurmStep",
     "PMI_SIZE=2 PMI_RANK=0 MPI_LOCALNRANKS=2 SLURM_STEP_ID=3 SLURM_STEP_NUM_TASKS=1",
     "MPICH's mpiexec (Hydra)", "mpich2", 2, 0},
    {"srunWithPmix",
     "SLURM_STEP_ID=0 SLURM_STEP_NUM_TASKS=16 SLURM_NTASKS=32 SLURM_PROCID=5 PMIX_RANK=5",
     "Slurm's srun", "openmpi4", 16, 5},
    {"srunWithPmi2", "SLURM_STEP_ID=1 SLURM_NTASKS=6 SLURM_PROCID=3 PMI_RANK=3 PMI_SIZE=6 PMI_FD=5",
     "Slurm's srun (PMI-2)", "mpich2", 6, 3},
    {"batchScriptOfAnAllocation", "SLURM_JOB_ID=77 SLURM_NTASKS=6", nullptr, "", 0, 0},
    {"countNotANumber", "OMPI_COMM_WORLD_SIZE=four", nullptr, "", 0, 0},
    {"noLauncher", "", nullptr, "", 0, 0},
};

class LauncherDetection : public testing::TestWithParam<Detection> {};

TEST_P(LauncherDetection, FindsTheLauncherItsCountAndTheMatchingDriver) {
    const Detection& expected = GetParam();
    const auto found = LauncherEnvironment::detect(lookupIn(expected.environment));
    if (!expected.name) {
        EXPECT_FALSE(found.has_value()) << found->name;
        return;
    }
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->name, expected.name);
    EXPECT_EQ(found->driver, expected.driver);
    EXPECT_EQ(found->processes, expected.processes);
    EXPECT_EQ(found->rank, expected.rank);
}

INSTANTIATE_TEST_SUITE_P(Launchers, LauncherDetection, testing::ValuesIn(detections),
                         [](const testing::TestParamInfo<Detection>& info) {
                             return std::string(info.param.what);
                         });

TEST(LauncherMismatch, OnlyADifferentWorldSizeIsRefused) {
    const LauncherEnvironment hydra{"MPICH's mpiexec (Hydra)", "mpich2", 4, 0};
    EXPECT_EQ(hydra.mismatch(4), "");
    EXPECT_EQ(hydra.mismatch(1),
              "MPICH's mpiexec (Hydra) started 4 processes, but MPI sees 1: the MPI driver does "
              "not match the launcher. Start the server with \"-mpi mpich2\" (or \"-mpi auto\") "
              "under this launcher.");
}

}  // namespace
}  // namespace tolm
