#pragma once
// Running tolm-server as an MPI job under either MPI's launcher, and reading its answers.
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "neo/Properties.h"
#include "support/ChildRun.h"

namespace tolm::test {

struct Launcher {
    const char* command;      // the launcher and its options, separated by blanks
    const char* environment;  // VAR=VALUE settings it needs, separated by blanks
};

extern const Launcher openMpi;
extern const Launcher mpich;

struct Job {
    const char* driver;
    Launcher launcher;
    const char* distribution;
    int ranks;
};

void PrintTo(const Job& job, std::ostream* out);
// "<driver>_np<ranks>", also the name of a parameterised case.
std::string jobName(const Job& job);
inline std::string caseName(const testing::TestParamInfo<Job>& info) {
    return jobName(info.param);
}

// One job under each MPI, with the given numbers of ranks.
inline auto bothMpis(int openMpiRanks, int mpichRanks) {
    return testing::Values(Job{"openmpi4", openMpi, "Open MPI", openMpiRanks},
                           Job{"mpich2", mpich, "MPICH", mpichRanks});
}

// The whole command line of the job, with the launcher's environment set in this process.
std::vector<std::string> jobCommand(const Job& job,
                                    const std::vector<std::string>& serverArguments);
ChildResult runJob(const Job& job, const std::vector<std::string>& serverArguments,
                   const std::string& input = "");
// The JSON lines of the server's standard output.
std::vector<Properties> responses(const std::string& out);

}  // namespace tolm::test
