#include "machine/core/LauncherEnvironment.h"

#include <cstdio>
#include <cstdlib>

#include "machine/comm/MpiCore.h"
#include "machine/core/ExitStatus.h"

namespace tolm {
namespace {

// A count or rank from the environment; nullopt when absent or not a number.
std::optional<unsigned int> number(const LauncherEnvironment::Lookup& lookup, const char* name) {
    const char* text = lookup(name);
    if (!text || !*text)
        return std::nullopt;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*end != '\0' || value > 0xffffffffUL)
        return std::nullopt;
    return static_cast<unsigned int>(value);
}

bool has(const LauncherEnvironment::Lookup& lookup, const char* name) {
    const char* text = lookup(name);
    return text && *text;
}

std::optional<LauncherEnvironment> launcher(const LauncherEnvironment::Lookup& lookup,
                                            const char* name, const char* driver,
                                            const char* countVariable, const char* rankVariable) {
    const auto count = number(lookup, countVariable);
    if (!count)
        return std::nullopt;
    return LauncherEnvironment{name, driver, *count, number(lookup, rankVariable).value_or(0)};
}

std::optional<LauncherEnvironment> slurm(const LauncherEnvironment::Lookup& lookup) {
    if (!has(lookup, "SLURM_STEP_ID"))
        return std::nullopt;
    const bool pmi = !has(lookup, "PMIX_RANK") && has(lookup, "PMI_RANK");
    const char* name = pmi ? "Slurm's srun (PMI-2)" : "Slurm's srun";
    const char* driver = pmi ? "mpich2" : "openmpi4";
    const char* count =
        has(lookup, "SLURM_STEP_NUM_TASKS") ? "SLURM_STEP_NUM_TASKS" : "SLURM_NTASKS";
    return launcher(lookup, name, driver, count, "SLURM_PROCID");
}

}  // namespace

std::optional<LauncherEnvironment> LauncherEnvironment::detect(const Lookup& given) {
    const Lookup lookup =
        given ? given : Lookup([](const char* name) { return std::getenv(name); });
    if (has(lookup, "OMPI_COMM_WORLD_SIZE")) {
        return launcher(lookup, "Open MPI's mpirun", "openmpi4", "OMPI_COMM_WORLD_SIZE",
                        "OMPI_COMM_WORLD_RANK");
    }
    if (has(lookup, "PMI_SIZE") && has(lookup, "MPI_LOCALNRANKS")) {
        return launcher(lookup, "MPICH's mpiexec (Hydra)", "mpich2", "PMI_SIZE", "PMI_RANK");
    }
    return slurm(lookup);
}

std::string LauncherEnvironment::mismatch(unsigned int worldSize) const {
    if (worldSize == processes)
        return {};
    return name + " started " + std::to_string(processes) + " processes, but MPI sees " +
           std::to_string(worldSize) + ": the MPI driver does not match the launcher. Start the " +
           "server with \"-mpi " + driver + "\" (or \"-mpi auto\") under this launcher.";
}

void LauncherEnvironment::refuseMismatch(unsigned int worldSize) {
    const auto found = detect();
    if (!found)
        return;
    const std::string message = found->mismatch(worldSize);
    if (message.empty())
        return;
    // Every process is a job of its own here: only the launcher's first one speaks.
    if (found->rank == 0) {
        std::fprintf(stderr, "Error: %s\n", message.c_str());
        std::fflush(stderr);
    }
    MpiCore::finalize();
    std::exit(int(ExitStatus(ExitStatus::InvalidArgumentCode)));
}

}  // namespace tolm
