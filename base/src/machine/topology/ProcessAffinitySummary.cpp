#include "machine/topology/ProcessAffinitySummary.h"

#include <set>

#include "machine/topology/Affinity.h"
#include "machine/topology/CpuBindingCollisions.h"
#include "machine/topology/CpuTopology.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"

namespace tolm {
namespace {

std::vector<unsigned> lpusOf(const AffinityMask& mask) {
    return {mask.begin(), mask.end()};
}

std::string counted(unsigned count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "[hostA:4711] rank 0 bound to LPU 0: [B/.]"
std::string processLine(const Properties& record) {
    std::string line = "[" + record.get<std::string>("host") + ":" +
                       std::to_string(record.get<unsigned>("pid")) + "] rank " +
                       std::to_string(record.get<unsigned>("rank"));
    const auto lpus = record.get<std::vector<unsigned>>("lpus");
    if (lpus.empty())
        return line + " affinity unknown\n";
    line += record.get<bool>("bound") ? " bound to " : " not bound, runs on ";
    return line + ProcessAffinitySummary::namedLpus(lpus) + ": " +
           record.get<std::string>("picture") + "\n";
}

std::string extendedLine(const Properties& record) {
    using Summary = ProcessAffinitySummary;
    return "    main thread on " +
           Summary::namedLpus(record.get<std::vector<unsigned>>("mainThreadLpus")) +
           "; last ran on " + Summary::namedLpus(record.get<std::vector<unsigned>>("lastLpus")) +
           "; covers " + record.get<std::string>("coverage") + "\n";
}

// "Host hostA:" and the host's topology, when its first process described it.
std::string hostLines(const Properties& collected, const std::string& host) {
    for (const Properties::Value& value : collected.value().at("hosts")) {
        const Properties system = Properties::fromValue(value);
        if (system.get<std::string>("host") == host)
            return "Host " + host + ":\n" + system.get<std::string>("topology");
    }
    return {};
}

bool pinnedByLauncher(const Properties::Value& processes) {
    for (const Properties::Value& record : processes) {
        if (!record.value("pinnedAtStart", false))
            return false;
    }
    return !processes.empty();
}

}  // namespace

Properties ProcessAffinitySummary::makeRecord(const MachineHost& host) {
    const CpuTopology& topology = host.getCpuTopology();
    const AffinityMask mask = Affinity::getProcessAffinity(topology);
    Properties record;
    record.set("rank", Machine::getPartitionId());
    record.set("host", host.getHostName());
    record.set("pid", static_cast<unsigned>(Platform::process().pid()));
    record.set("hostRank", host.getIntraHostRank());
    record.set("lpus", lpusOf(mask));
    record.set("bound", host.isBoundByMachine() ||
                            CpuBindingCollisions::isPinned(mask, host.getAvailableMask()));
    record.set("pinnedAtStart", host.wasPinnedAtStart());
    record.set("picture", picture(topology, mask));
    record.set("mainThreadLpus", lpusOf(Affinity::getThreadAffinity(topology)));
    record.set("lastLpus", lpusOf(Affinity::getProcessCpuLocation(topology)));
    record.set("coverage", topology.printAffinityMask(mask, 8));
    return record;
}

Properties ProcessAffinitySummary::collect(const std::vector<Properties>& records) {
    Properties::Value hosts = Properties::Value::array();
    Properties::Value processes = Properties::Value::array();
    for (Properties record : records) {
        if (record.has(systemKey)) {
            hosts.push_back(record.getChild(systemKey).value());
            record.remove(systemKey);
        }
        processes.push_back(record.value());
    }
    Properties collected;
    collected.set("hosts", hosts);
    collected.set("processes", processes);
    return collected;
}

std::string ProcessAffinitySummary::format(const Properties& collected, unsigned numberHosts,
                                           const std::string& policy, bool extended) {
    const Properties::Value& processes = collected.value().at("processes");
    std::string text =
        "Process binding (policy " + policy +
        "): " + counted(static_cast<unsigned>(processes.size()), "process", "processes") + " on " +
        counted(numberHosts, "host", "hosts") + "\n";
    if (pinnedByLauncher(processes))
        text += "The launcher had pinned every rank before start-up\n";
    std::set<std::string> described;
    for (const Properties::Value& value : processes) {
        const Properties record = Properties::fromValue(value);
        const std::string host = record.get<std::string>("host");
        if (extended && described.insert(host).second)
            text += hostLines(collected, host);
        text += processLine(record);
        if (extended)
            text += extendedLine(record);
    }
    return text;
}

std::string ProcessAffinitySummary::picture(const CpuTopology& topology, const AffinityMask& mask) {
    if (!topology.reliableLpuInformationAvailable())
        return "[" + mask.toHexString(0) + "]";
    std::string text;
    for (unsigned socket = 0; socket < topology.getNumberSockets(); ++socket) {
        text += "[";
        const std::vector<unsigned> cores = topology.getPhysicalCoresForSocket(socket);
        for (std::size_t i = 0; i < cores.size(); ++i) {
            if (i)
                text += "/";
            for (const unsigned lpu : topology.getLpusForPhysicalCore(cores[i]))
                text += topology.getLpuMask(lpu).isIncludedIn(mask) ? "B" : ".";
        }
        text += "]";
    }
    return text;
}

std::string ProcessAffinitySummary::lpuList(const AffinityMask& mask) {
    return lpuList(lpusOf(mask));
}

std::string ProcessAffinitySummary::lpuList(const std::vector<unsigned>& lpus) {
    if (lpus.empty())
        return "none";
    std::string text;
    for (std::size_t first = 0; first < lpus.size();) {
        std::size_t last = first;
        while (last + 1 < lpus.size() && lpus[last + 1] == lpus[last] + 1)
            ++last;
        text += (text.empty() ? "" : ",") + std::to_string(lpus[first]);
        if (last > first)
            text += "-" + std::to_string(lpus[last]);
        first = last + 1;
    }
    return text;
}

std::string ProcessAffinitySummary::namedLpus(const std::vector<unsigned>& lpus) {
    return (lpus.size() == 1 ? "LPU " : "LPUs ") + lpuList(lpus);
}

std::string ProcessAffinitySummary::policyName() {
    return Machine::settings().bindingPolicyName();
}

}  // namespace tolm
