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
// The job with `ranks` ranks, each in a UTS namespace of its own named by simulated-hosts.sh:
// ranks 0, 2 on hostA and 1, 3 on hostB, and no other job's server on their hosts.
ChildResult runOnSimulatedHosts(Job job, int ranks,
                                const std::vector<std::string>& serverArguments);
// Whether this process may make UTS namespaces, as simulated hosts need.
bool unshareAllowed();
// The JSON lines of the server's standard output.
std::vector<Properties> responses(const std::string& out);
// A process line of the binding report: its host, and "bound to LPU <n>" or "not bound, runs
// on LPUs <list>".
struct ReportedBinding {
    std::string host;
    std::string binding;
};
// The process lines of the binding report on `out`, by rank.
std::map<unsigned, ReportedBinding> reportedBindings(const std::string& out);
// How often `part` occurs in `text` (a message printed once, not by every rank).
std::size_t occurrences(const std::string& text, const std::string& part);

}  // namespace tolm::test
