#include "ServerOptions.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ServerBuildInfo.h"
#include "machine/core/MpiDriverTable.h"
#include "machine/core/OptionError.h"

namespace tolm {
namespace {

// The server's own options and the argv entries each occupies.
constexpr std::array<std::pair<const char*, int>, 11> serverOptions{{
    {"-batch", 2},
    {"-check", 1},
    {"-help", 1},
    {"--help", 1},
    {"-version", 1},
    {"--version", 1},
    {"-passtodesign", 2},
    {"-dmprojectid", 2},
    {"-dmprojectid2", 2},
    {"-dmrunfile", 2},
    {"-dmproject", 1},
}};

bool isServerOption(const std::string& entry, int& entries) {
    for (const auto& [name, count] : serverOptions) {
        if (entry == name) {
            entries = count;
            return true;
        }
    }
    return false;
}

bool has(int argc, char** argv, const char* option) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i] && std::string(argv[i]) == option)
            return true;
    }
    return false;
}

// "-mpi platform (Open MPI 4.1.4)" for every driver of the build, in the driver table's order.
std::vector<std::string> builtDrivers() {
    std::vector<std::string> texts;
    std::vector<std::string> listed;
    for (const auto& [value, library] : MpiDriverTable::entries()) {
        if (std::find(listed.begin(), listed.end(), library) != listed.end())
            continue;
        for (const buildinfo::BuiltDriver& driver : buildinfo::builtDrivers) {
            if (library == driver.library) {
                texts.push_back("-mpi " + value + " (" + driver.mpi + ")");
                listed.push_back(library);
            }
        }
    }
    return texts;
}

}  // namespace

std::optional<std::string> ServerOptions::informationRequest(int argc, char** argv) {
    if (has(argc, argv, "-help") || has(argc, argv, "--help"))
        return usage();
    if (has(argc, argv, "-version") || has(argc, argv, "--version"))
        return versionText();
    return std::nullopt;
}

std::string ServerOptions::usage() {
    return R"(Usage: tolm-server -s [options]                          serial run
       mpiexec -n N tolm-server [-mpi DRIVER] [options]    parallel run

The serial process, or the master of a parallel run, reads commands, one JSON object per
line, from -batch FILE or from standard input, and writes one JSON response per command.

Server options:
  -batch FILE            read the commands from FILE
  -check                 start the machine, report its set-up per host, run no batch
                         (exit 0 when all is well, 2 when not)
  -help, --help          this text
  -version, --version    the version and the MPI drivers of this build

Common options (every process):
  -s                     serial run without MPI
  -mpi DRIVER            MPI driver: platform (default), openmpi4, mpich2
  -tmpdir DIR            temporary directory (default $TMPDIR, else /tmp)
  -slavelogs DIR         each slave's standard output and error go to files in DIR
  -param NAME VALUE      initial value of a named parameter
  -nothreads             no worker threads
  -cpubind latency|leastload|disable
                         process binding policy (default bandwidth)
  -cpubindcontentiontest enable|disable
                         test for CPU contention after binding
  -cpubindverbose, -cpubindextendedverbosity
                         print the binding report
  -xthreadbindoff, -xthreadbindverbose
                         thread binding off / verbose
  -memorymonitor SECONDS sample every process's memory every SECONDS (0: every 0.02 s)
  -iodebug N             I/O verbosity level
  -pio                   parallel I/O
  -rsh COMMAND           remote shell for processes on other hosts
  -module NAME           load the module libNAME.so
  -fpe                   trap floating-point exceptions
  -jobmanagerurl URL -taskid N
                         job manager (both, with a non-zero task id)
  -printpids, -deleteOnExit, -xnodeverrors, -xnoulm, -time
  -rrthreads N, -rgraphics auto|hardware|software|off
                         renderer settings

Commands ({"command":"NAME", ...}):
  Echo                   answers with what it was given
  MachineInfo            role, process count, settings, each rank's process id and host
  Solve                  Jacobi solve of a 2-D Poisson problem over the ranks
  HostMap                hosts, topologies and process bindings
  HybridReduce           a threaded reduction over a shared-memory window per group
  WriteField, ReadField, RestoreState
                         collective file writes and reads
  MemoryUsage, StartMemoryRecording, StopMemoryRecording, ExportMemoryHistory
                         the memory monitor (needs -memorymonitor)
  Fail, RaiseFloatingPointError, Sleep
                         faults and delays on chosen ranks

Exit codes add up: 1 server error, 2 invalid argument, 4 file error, 16 floating-point
error, 32 non-recoverable error.
)";
}

std::string ServerOptions::versionText() {
    std::string text = std::string("tolm-server ") + buildinfo::version + "\nMPI drivers:\n";
    for (const std::string& driver : builtDrivers())
        text += "  " + driver + "\n";
    return text;
}

std::optional<std::string> ServerOptions::batchFile(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!argv[i] || std::string(argv[i]) != "-batch")
            continue;
        if (i + 1 >= argc || !argv[i + 1])
            throw OptionError("Missing -batch arg");
        return std::string(argv[i + 1]);
    }
    return std::nullopt;
}

bool ServerOptions::isCheck(int argc, char** argv) {
    return has(argc, argv, "-check");
}

std::vector<std::string> ServerOptions::leftovers(int argc, char** argv,
                                                  const Machine::ArgumentMap& consumed) {
    std::vector<std::string> left;
    int i = 1;
    while (i < argc) {
        const std::string entry = argv[i] ? argv[i] : "";
        const auto taken = consumed.find(entry);
        int entries = 1;
        if (taken != consumed.end()) {
            entries = static_cast<int>(taken->second);
        } else if (!isServerOption(entry, entries) && !entry.empty()) {
            left.push_back(entry);
        }
        i += std::max(entries, 1);
    }
    return left;
}

std::string ServerOptions::leftoverWarning(const std::vector<std::string>& leftovers) {
    if (leftovers.empty())
        return "";
    std::string line = "Warning: unused options:";
    for (const std::string& entry : leftovers)
        line += " " + entry;
    return line;
}

std::string ServerOptions::builtDriversLine() {
    std::string line = "MPI drivers of this build:";
    const auto drivers = builtDrivers();
    for (std::size_t i = 0; i < drivers.size(); ++i)
        line += (i == 0 ? " " : ", ") + drivers[i];
    return line;
}

}  // namespace tolm
