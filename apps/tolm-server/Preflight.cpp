#include "Preflight.h"

#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "ServerBuildInfo.h"
#include "machine/comm/Communicator.h"
#include "machine/comm/MpiCore.h"
#include "machine/commands/CommandController.h"
#include "machine/core/Machine.h"
#include "machine/core/MpiDriverTable.h"
#include "machine/topology/CpuTopology.h"
#include "machine/topology/MachineHost.h"
#include "machine/topology/ProcessAffinitySummary.h"
#include "neo/Command.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "platform/Chip.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

using Records = std::vector<Properties>;

// The file of the MPI library this process loaded (Open MPI's libmpi, MPICH's libmpich).
std::string mpiLibraryFile() {
    std::string found;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* data) {
            const char* slash = info->dlpi_name ? std::strrchr(info->dlpi_name, '/') : nullptr;
            const char* base = slash ? slash + 1 : "";
            if (std::strncmp(base, "libmpi.so", 9) != 0 &&
                std::strncmp(base, "libmpich.so", 11) != 0)
                return 0;
            *static_cast<std::string*>(data) = info->dlpi_name;
            return 1;
        },
        &found);
    return found.empty() ? "none" : found;
}

// The first line of the MPI library's own version text; "" in a serial run.
std::string mpiLibraryVersion() {
    if (!Machine::isParallel())
        return "";
    char text[QMX_MPI_MAX_LIBRARY_VERSION_STRING] = {};
    int length = 0;
    MpiCore::handleError(QMX_MPI_Get_library_version(text, &length));
    std::string version(text, std::size_t(length > 0 ? length : 0));
    version = version.substr(0, version.find('\n'));
    std::replace(version.begin(), version.end(), '\t', ' ');
    while (!version.empty() && (version.back() == ' ' || version.back() == '\0'))
        version.pop_back();
    return version;
}

bool writable(const std::string& directory) {
    return ::access(directory.c_str(), W_OK | X_OK) == 0;
}

Properties describeProcess(const Properties& command) {
    MachineHost& host = Machine::getHost();
    Properties record = ProcessAffinitySummary::makeRecord(host);
    record.set("role", Machine::isSerial() ? "serial" : Machine::isMaster() ? "master" : "slave");
    record.set("mpiLibrary", Machine::isParallel() ? mpiLibraryFile() : "none (serial run)");
    record.set("mpiVersion", mpiLibraryVersion());
    record.set("vectorization", Platform::chip().vectorizationLevel());
    const std::string temporary =
        StringHelper::toString(Machine::getSingleton().getTemporaryDirectory());
    record.set("temporaryDirectory", temporary);
    record.set("temporaryWritable", writable(temporary));
    if (command.has("logDirectory"))
        record.set("logWritable", writable(command.get<std::string>("logDirectory")));
    // Collective over the host: every process asks, the first one reports.
    const bool contention = host.hasCpuContention(false);
    if (host.firstProcessOnHost()) {
        record.set("contention", contention);
        record.set("overSubscribedBy", host.isOverSubscribed());
        record.set(
            "physicalCores",
            static_cast<unsigned>(
                host.getCpuTopology().getPhysicalCoresFromMask(host.getAvailableMask()).size()));
    }
    return record;
}

void preflightCommand(const Properties& command, Properties& response) {
    const Properties mine = describeProcess(command);
    Records all{mine};
    if (Machine::isParallel())
        Machine::globalCommunicator()->gather(mine, all);
    if (!(Machine::isSerial() || Machine::isMaster()))
        return;
    Properties::Value processes = Properties::Value::array();
    for (const Properties& record : all)
        processes.push_back(record.value());
    response.set("processes", processes);
}

// The value of "-slavelogs", if given.
std::string logDirectory(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; ++i) {
        if (argv[i] && std::string(argv[i]) == "-slavelogs" && argv[i + 1])
            return argv[i + 1];
    }
    return "";
}

std::string driverLine(int argc, char** argv) {
    if (Machine::isSerial())
        return "none (serial run)";
    Machine::ArgumentMap ignored;
    const std::string library = MpiDriverTable::libraryFromArguments(argc, argv, ignored);
    std::string value;
    for (const auto& [word, name] : MpiDriverTable::entries()) {
        if (name == library && value.empty())
            value = word;
    }
    std::string mpi = "unknown MPI";
    for (const buildinfo::BuiltDriver& driver : buildinfo::builtDrivers) {
        if (library == driver.library)
            mpi = driver.mpi;
    }
    return "-mpi " + value + " (" + library + ", built against " + mpi + ")";
}

std::string rankList(const std::vector<unsigned>& ranks) {
    std::string text;
    for (const unsigned rank : ranks)
        text += (text.empty() ? "" : ", ") + std::to_string(rank);
    return text;
}

std::string roleOf(const Records& host) {
    const std::string first = host.front().get<std::string>("role");
    if (first == "serial")
        return "serial";
    const auto slaves = host.size() - (first == "master" ? 1 : 0);
    const std::string counted = std::to_string(slaves) + (slaves == 1 ? " slave" : " slaves");
    return first == "master" ? (slaves ? "master and " + counted : "master") : counted;
}

// "value" when every process of the host says the same, else "rank 0: a; rank 2: b".
std::string common(const Records& host, const char* key) {
    std::set<std::string> values;
    for (const Properties& record : host)
        values.insert(record.get<std::string>(key));
    if (values.size() == 1)
        return *values.begin();
    std::string text;
    for (const Properties& record : host)
        text += (text.empty() ? "rank " : "; rank ") +
                std::to_string(record.get<unsigned>("rank")) + ": " + record.get<std::string>(key);
    return text;
}

std::string bindingOf(const Properties& record) {
    const auto lpus = record.get<std::vector<unsigned>>("lpus");
    return (record.get<bool>("bound") ? "bound to " : "not bound, runs on ") +
           ProcessAffinitySummary::namedLpus(lpus);
}

// The lines of one host, and its problems.
std::string formatHost(const std::string& name, const Records& host, const Properties& job,
                       std::vector<std::string>& problems) {
    const std::string logs = job.get<std::string>("logDirectory", "");
    const Properties& first = host.front();
    std::vector<unsigned> ranks;
    for (const Properties& record : host)
        ranks.push_back(record.get<unsigned>("rank"));
    std::string text = "host " + name + ": " + roleOf(host) +
                       (ranks.size() == 1 ? ", rank " : ", ranks ") + rankList(ranks) + "\n";
    const std::string library = common(host, "mpiLibrary");
    const std::string version = common(host, "mpiVersion");
    text += "  MPI library: " + library + (version.empty() ? "" : ", " + version) + "\n";
    text += "  vectorization: " + common(host, "vectorization") + "\n";
    for (const Properties& record : host)
        text += "  rank " + std::to_string(record.get<unsigned>("rank")) + ": " +
                bindingOf(record) + "\n";
    const unsigned over = first.get<unsigned>("overSubscribedBy", 0u);
    for (const Properties& record : host) {
        if (job.get<bool>("machineBinds") && over == 0 && !record.get<bool>("bound"))
            problems.push_back("rank " + std::to_string(record.get<unsigned>("rank")) +
                               " on host " + name + " could not be bound to an LPU");
    }
    if (over != 0) {
        const auto cores = first.get<unsigned>("physicalCores");
        problems.push_back("host " + name + " runs " + std::to_string(host.size()) +
                           " processes on " + std::to_string(cores) + " available physical " +
                           (cores == 1 ? "core" : "cores") + ": they are not bound");
    }
    const bool contention = first.get<bool>("contention", false);
    text += std::string("  contention: ") +
            (contention ? "LPUs of this host are held by another job of this server" : "none") +
            "\n";
    if (contention)
        problems.push_back("host " + name + ": another job of this server holds LPUs of the host");
    bool temporaryWritable = true;
    bool logWritable = true;
    for (const Properties& record : host) {
        temporaryWritable = temporaryWritable && record.get<bool>("temporaryWritable");
        logWritable = logWritable && record.get<bool>("logWritable", true);
    }
    const std::string temporary = common(host, "temporaryDirectory");
    text += "  temporary directory: " + temporary +
            (temporaryWritable ? " (writable)" : " (not writable)") + "\n";
    if (!temporaryWritable)
        problems.push_back("host " + name + ": the temporary directory " + temporary +
                           " is not writable");
    if (logs.empty()) {
        text += "  log directory: none (slaves print to the launcher's console)\n";
    } else {
        text +=
            "  log directory: " + logs + (logWritable ? " (writable)" : " (not writable)") + "\n";
        if (!logWritable)
            problems.push_back("host " + name + ": the log directory " + logs + " is not writable");
    }
    return text;
}

}  // namespace

void Preflight::registerCommand(Controller& controller) {
    controller.registerCommand(COMMAND, preflightCommand);
}

std::string Preflight::launcherName() {
    if (std::getenv("OMPI_COMM_WORLD_SIZE"))
        return "mpirun (Open MPI)";
    if (std::getenv("PMI_RANK") && std::getenv("PMI_FD"))
        return "mpiexec (Hydra)";
    if (std::getenv("SLURM_PROCID"))
        return "srun";
    return "none";
}

std::string Preflight::format(const Properties& job, const std::vector<Properties>& processes,
                              std::vector<std::string>& problems) {
    std::vector<std::string> order;
    std::map<std::string, Records> hosts;
    std::set<std::string> levels;
    std::set<std::string> versions;
    bool allPinned = !processes.empty();
    for (const Properties& record : processes) {
        allPinned = allPinned && record.get<bool>("pinnedAtStart");
        const std::string host = record.get<std::string>("host");
        if (!hosts.contains(host))
            order.push_back(host);
        hosts[host].push_back(record);
        levels.insert(record.get<std::string>("vectorization"));
        versions.insert(record.get<std::string>("mpiVersion"));
    }
    std::string text = "Preflight of " + std::to_string(processes.size()) +
                       (processes.size() == 1 ? " process on " : " processes on ") +
                       std::to_string(order.size()) + (order.size() == 1 ? " host\n" : " hosts\n");
    text += "launcher: " + job.get<std::string>("launcher") + "\n";
    text += "driver: " + job.get<std::string>("driver") + "\n";
    if (allPinned)
        text += "binding: the launcher had pinned every rank before start-up\n";
    for (const std::string& host : order)
        text += formatHost(host, hosts[host], job, problems);
    if (levels.size() > 1)
        problems.push_back("the hosts have mixed vectorization capabilities");
    if (versions.size() > 1)
        problems.push_back("the processes run different MPI libraries");
    return text;
}

ExitStatus Preflight::run(int argc, char** argv) {
    Properties command = Command::make(COMMAND);
    const std::string logs = logDirectory(argc, argv);
    if (!logs.empty())
        command.set("logDirectory", logs);
    Properties response;
    if (!CommandController::getSingleton().masterExecuteCommand(command, response)) {
        std::fprintf(stderr, "Error: %s\n", Error::getMessage(response).c_str());
        return ExitStatus::ServerErrorCode;
    }
    Properties job;
    job.set("launcher", launcherName());
    job.set("driver", driverLine(argc, argv));
    job.set("logDirectory", logs);
    job.set("machineBinds", Machine::useInternalBinding());
    std::vector<std::string> problems;
    Records processes;
    for (const Properties::Value& value : response.value().at("processes"))
        processes.push_back(Properties::fromValue(value));
    std::string report = format(job, processes, problems);
    if (problems.empty()) {
        report += "All is well.\n";
    } else {
        report += "Problems:\n";
        for (const std::string& problem : problems)
            report += "  " + problem + "\n";
    }
    std::fputs(report.c_str(), stdout);
    std::fflush(stdout);
    return problems.empty() ? ExitStatus() : ExitStatus::InvalidArgumentCode;
}

}  // namespace tolm
