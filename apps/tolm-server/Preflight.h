#pragma once
#include <string>
#include <vector>

#include "machine/core/ExitStatus.h"
#include "neo/Properties.h"

namespace tolm {

class Controller;

// The preflight ("-check"): after the machine started as for a job, every process describes
// itself (command "Preflight") and the master prints, on standard output:
//
//   Preflight of 4 processes on 2 hosts
//   launcher: mpirun (Open MPI)
//   driver: -mpi openmpi4 (TolmOpenMpi4, built against Open MPI 4.1.4)
//   [binding: the launcher had pinned every rank before start-up]
//   host hostA: master and 1 slave, ranks 0, 2
//     MPI library: /usr/lib/.../libmpi.so.40, Open MPI v4.1.4, package: ...
//     vectorization: avx2
//     rank 0: bound to LPU 0
//     rank 2: bound to LPU 1
//     contention: none
//     temporary directory: /tmp (writable)
//     log directory: none (slaves print to the launcher's console)
//   ...
//   All is well.
//
// or, instead of the last line, "Problems:" and one line per problem: a host with more
// processes than available physical cores, a process the machine could not bind, LPUs other
// jobs hold, a temporary or log directory a process cannot write, processes whose MPI
// libraries differ, mixed vectorization levels.
class Preflight {
  public:
    static constexpr const char* COMMAND = "Preflight";

    // Registers "Preflight" (every process of a job must have it): each process's record is
    // gathered to the master, who answers with "processes" (in rank order).
    static void registerCommand(Controller& controller);
    // Serial process or master: runs the command on every process and prints the report.
    // The status is the invalid-argument code when the report found a problem.
    static ExitStatus run(int argc, char** argv);

    // The report of the gathered records (in rank order) of a job described by `job`
    // ("launcher", "driver", "logDirectory", "machineBinds"); `problems` receives one text
    // per problem.
    static std::string format(const Properties& job, const std::vector<Properties>& processes,
                              std::vector<std::string>& problems);
    // How this process was started: "mpirun (Open MPI)", "mpiexec (Hydra)", "srun" or "none".
    static std::string launcherName();
};

}  // namespace tolm
