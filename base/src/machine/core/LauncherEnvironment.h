#pragma once
#include <functional>
#include <optional>
#include <string>

namespace tolm {

// The launcher that started this process, as its environment tells before MPI starts, and the
// "-mpi" value whose driver matches it. Each launcher sets its own variables:
//   Open MPI's mpirun         OMPI_COMM_WORLD_SIZE, OMPI_COMM_WORLD_RANK
//   MPICH's mpiexec (Hydra)   PMI_SIZE, PMI_RANK, PMI_FD and MPI_LOCALNRANKS
//   Slurm's srun              SLURM_STEP_ID, SLURM_STEP_NUM_TASKS (or SLURM_NTASKS),
//                             SLURM_PROCID; PMIX_RANK with the PMIx plugin (Open MPI),
//                             PMI_RANK with the PMI-2 plugin (MPICH)
// mpirun and Hydra are looked for first: within a Slurm allocation they start their own
// processes through srun, whose variables the processes then inherit.
//
// A driver that does not match its launcher does not see the launcher's job: every process
// becomes an MPI job of its own. Comparing the launcher's process count with MPI's world size
// tells that apart.
class LauncherEnvironment {
  public:
    using Lookup = std::function<const char*(const char*)>;

    std::string name;    // e.g. "MPICH's mpiexec (Hydra)"
    std::string driver;  // the "-mpi" value that matches it
    unsigned int processes = 0;
    unsigned int rank = 0;  // this process's rank as the launcher numbers it

    // The launcher found in the environment `lookup` reads (the process's by default).
    static std::optional<LauncherEnvironment> detect(const Lookup& lookup = {});
    // The message refusing a job whose MPI world has `worldSize` processes; empty when the
    // sizes agree.
    std::string mismatch(unsigned int worldSize) const;
    // After MPI started: on a mismatch, the launcher's first process prints the message and
    // every process ends with the invalid-argument exit code.
    static void refuseMismatch(unsigned int worldSize);
};

}  // namespace tolm
