#include "machine/topology/CpuTopologyPrinter.h"

#include <algorithm>
#include <numeric>

#include "machine/topology/CpuTopology.h"

namespace tolm {
namespace {

std::string padded(unsigned number, unsigned width) {
    std::string digits = std::to_string(number);
    if (digits.size() < width)
        digits.insert(0, width - digits.size(), '0');
    return digits;
}

const char* yesNo(bool value) {
    return value ? "yes" : "no";
}

// `items` joined by " ". When their weights add up to more than `maxWeight` (and there are
// more than two), leading and trailing items are kept in turn, the first one always, while
// the kept weight stays within `maxWeight`; the middle becomes " ...".
std::string joinShortened(const std::vector<std::string>& items,
                          const std::vector<unsigned>& weights, unsigned maxWeight) {
    const unsigned total = std::accumulate(weights.begin(), weights.end(), 0u);
    std::size_t front = items.size();
    std::size_t back = 0;
    if (total > maxWeight && items.size() > 2) {
        front = 1;
        unsigned kept = weights[0];
        for (bool fromBack = true; front + back < items.size(); fromBack = !fromBack) {
            const std::size_t next = fromBack ? items.size() - 1 - back : front;
            if (kept + weights[next] > maxWeight)
                break;
            kept += weights[next];
            ++(fromBack ? back : front);
        }
    }
    std::string text;
    for (std::size_t i = 0; i < front; ++i)
        text += (i ? " " : "") + items[i];
    if (front + back < items.size())
        text += " ...";
    for (std::size_t i = items.size() - back; i < items.size(); ++i)
        text += " " + items[i];
    return text;
}

}  // namespace

CpuTopologyPrinter::CpuTopologyPrinter(const CpuTopology& topology,
                                       const CpuTopologyPrintWidths& widths)
    : _topology(topology), _widths(widths) {}

std::string CpuTopologyPrinter::print(bool sockets, bool numaNodes, bool physicalCores,
                                      bool summary, unsigned indent, unsigned maxItems) const {
    const unsigned items = std::max(maxItems, 2u);
    const std::string margin(indent, ' ');
    const bool merged = sockets && numaNodes && _topology.socketsEqualToNumaNodes();
    std::string text;
    for (unsigned s = 0; sockets && s < _topology.getNumberSockets(); ++s) {
        text += margin + "S" + padded(s, _widths.socket);
        if (merged)
            text += " = N" + padded(s, _widths.numaNode);
        text += " : " + lpuList(_topology.getLpusForSocket(s), items);
    }
    for (unsigned n = 0; numaNodes && !merged && n < _topology.getNumberNumaNodes(); ++n) {
        text += margin + "N" + padded(n, _widths.numaNode) + " : " +
                lpuList(_topology.getLpusForNumaNode(n), items);
    }
    const bool cores = physicalCores && _topology.usesSMT();
    for (unsigned c = 0; cores && c < _topology.getNumberPhysicalCores(); ++c) {
        text += margin + "C" + padded(c, _widths.physicalCore) + " : " +
                lpuList(_topology.getLpusForPhysicalCore(c), items);
    }
    if (summary)
        text += summaryLines(margin);
    return text;
}

std::string CpuTopologyPrinter::lpuList(const std::vector<unsigned>& lpus,
                                        unsigned maxItems) const {
    std::vector<std::string> cores;
    std::vector<unsigned> sizes;
    unsigned lastCore = 0;
    for (unsigned lpu : lpus) {
        const unsigned core = _topology.getPhysicalCoreForLpu(lpu);
        if (cores.empty() || core != lastCore) {
            cores.emplace_back();
            sizes.push_back(0);
        } else {
            cores.back() += "+";
        }
        cores.back() += padded(lpu, _widths.lpu);
        ++sizes.back();
        lastCore = core;
    }
    return "[" + joinShortened(cores, sizes, maxItems) + "]\n";
}

std::string CpuTopologyPrinter::summaryLines(const std::string& margin) const {
    const CpuTopology& t = _topology;
    return margin + "LPUs = " + std::to_string(t.getNumberLpus()) +
           ", physical cores = " + std::to_string(t.getNumberPhysicalCores()) +
           ", NUMA nodes = " + std::to_string(t.getNumberNumaNodes()) +
           ", sockets = " + std::to_string(t.getNumberSockets()) + "\n" + margin +
           "Sockets are equal to NUMA nodes: " + yesNo(t.socketsEqualToNumaNodes()) + "\n" +
           margin + "Simultaneous multithreading (SMT): " + yesNo(t.usesSMT()) + "\n" + margin +
           "Symmetric: " + yesNo(t.isSymmetric()) + "\n" + margin +
           "Information obtained via hwloc: LPUs = " + yesNo(t.reliableLpuInformationAvailable()) +
           ", physical cores = " + yesNo(t.reliablePhysicalCoreInformationAvailable()) +
           ", NUMA nodes = " + yesNo(t.reliableNumaNodeInformationAvailable()) +
           ", sockets = " + yesNo(t.reliableSocketInformationAvailable()) + "\n";
}

// Names the largest units first: whole sockets, then whole NUMA nodes, then whole cores (only
// with SMT, where a core is more than one LPU), then single LPUs. A mask reaching beyond the
// machine's LPUs has no such names and is shown in hexadecimal.
std::string CpuTopologyPrinter::printAffinityMask(const AffinityMask& mask,
                                                  unsigned maxItems) const {
    if (mask.empty())
        return "{}";
    if (!_topology.reliableLpuInformationAvailable() ||
        !mask.isIncludedIn(_topology.getTopologyMask()))
        return "{" + mask.toHexString(0) + "}";
    AffinityMask rest = mask;
    std::vector<std::string> runs;
    const auto name = [&](const char* prefix, unsigned count, unsigned width, MaskOf maskOf) {
        const auto found = coveredRuns(prefix, count, width, maskOf, rest);
        runs.insert(runs.end(), found.begin(), found.end());
    };
    if (_topology.reliableSocketInformationAvailable())
        name("S", _topology.getNumberSockets(), _widths.socket, &CpuTopology::getSocketMask);
    if (_topology.reliableNumaNodeInformationAvailable())
        name("N", _topology.getNumberNumaNodes(), _widths.numaNode, &CpuTopology::getNumaMask);
    if (_topology.reliablePhysicalCoreInformationAvailable() && _topology.usesSMT()) {
        name("C", _topology.getNumberPhysicalCores(), _widths.physicalCore,
             &CpuTopology::getPhysicalCoreMask);
    }
    name("", _topology.getNumberLpus(), _widths.lpu, &CpuTopology::getLpuMask);
    return "{" +
           joinShortened(runs, std::vector<unsigned>(runs.size(), 1u), std::max(maxItems, 2u)) +
           "}";
}

std::vector<std::string> CpuTopologyPrinter::coveredRuns(const std::string& prefix, unsigned count,
                                                         unsigned width, MaskOf maskOf,
                                                         AffinityMask& rest) const {
    std::vector<std::string> runs;
    unsigned runEnd = 0;  // one past the last member of the current run
    for (unsigned i = 0; i < count; ++i) {
        const AffinityMask member = (_topology.*maskOf)(i);
        if (member.empty() || !member.isIncludedIn(rest))
            continue;
        rest ^= member;
        if (!runs.empty() && runEnd == i) {
            const std::string first = runs.back().substr(0, runs.back().find('-'));
            runs.back() = first + "-" + prefix + padded(i, width);
        } else {
            runs.push_back(prefix + padded(i, width));
        }
        runEnd = i + 1;
    }
    return runs;
}

}  // namespace tolm
