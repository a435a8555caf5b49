#include "machine/topology/CpuTopology.h"

#include <hwloc.h>
#include <hwloc/export.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>

#include "machine/topology/CpuTopologyImpl.h"

namespace tolm {
namespace {

// Decimal digits of the highest number of a level of `count` members, at least 2.
unsigned printWidth(unsigned count) {
    unsigned digits = 1;
    for (unsigned highest = count - 1; highest >= 10; highest /= 10)
        ++digits;
    return std::max(digits, 2u);
}

// Whether member i of a level of `count` has as many members as member 0, for every i.
bool sameSizeAsFirst(unsigned count, const std::function<std::size_t(unsigned)>& size) {
    for (unsigned i = 1; i < count; ++i)
        if (size(i) != size(0))
            return false;
    return true;
}

// Untaken LPUs of one NUMA group, by core key, each core's in input order.
using CoreGroups = std::map<unsigned, std::deque<unsigned>>;

// One pass of getLpuSubset: every NUMA group points at its first core group; visiting the
// NUMA groups in turn, each takes the next LPU of the core group it points at and moves on.
void takeOnePass(std::map<unsigned, CoreGroups>& numaGroups, std::size_t target,
                 std::vector<unsigned>& taken) {
    std::vector<std::pair<CoreGroups::iterator, CoreGroups::iterator>> pointers;
    for (auto& [numaNode, coreGroups] : numaGroups)
        pointers.emplace_back(coreGroups.begin(), coreGroups.end());
    bool visited = true;
    while (visited && taken.size() < target) {
        visited = false;
        for (auto& [pointer, end] : pointers) {
            if (taken.size() == target)
                break;
            if (pointer == end)
                continue;
            visited = true;
            if (!pointer->second.empty()) {
                taken.push_back(pointer->second.front());
                pointer->second.pop_front();
            }
            ++pointer;
        }
    }
}

}  // namespace

CpuTopology::CpuTopology() : CpuTopology(std::string()) {}

CpuTopology::CpuTopology(const std::string& xml) : _impl(std::make_unique<Impl>(xml)) {
    _impl->_symmetric = computeSymmetry();
    _impl->_socketsEqualToNumaNodes = computeSocketsEqualToNumaNodes();
    _impl->_printWidths = {printWidth(getNumberLpus()), printWidth(getNumberPhysicalCores()),
                           printWidth(getNumberNumaNodes()), printWidth(getNumberSockets())};
}

CpuTopology::CpuTopology(CpuTopology&& other) noexcept = default;
CpuTopology& CpuTopology::operator=(CpuTopology&& other) noexcept = default;
CpuTopology::~CpuTopology() = default;

std::string CpuTopology::toString() const {
    if (!_impl->_topology)
        return {};
    char* buffer = nullptr;
    int length = 0;
    if (hwloc_topology_export_xmlbuffer(_impl->_topology, &buffer, &length, 0) != 0)
        return {};
    // The length counts the terminating null character.
    std::string xml(buffer, static_cast<std::size_t>(std::max(length - 1, 0)));
    hwloc_free_xmlbuffer(_impl->_topology, buffer);
    return xml;
}

hwloc_topology* CpuTopology::getHwlocTopology() const {
    return _impl->_topology;
}

AffinityMask CpuTopology::wrapCpuset(const hwloc_bitmap_s* cpuset) {
    return AffinityMask(cpuset);
}

// The five tests run in order and stop at the first asymmetry; levels without a table pass.
bool CpuTopology::computeSymmetry() const {
    return sameSizeAsFirst(getNumberPhysicalCores(),
                           [this](unsigned c) { return getLpusForPhysicalCore(c).size(); }) &&
           sameSizeAsFirst(getNumberNumaNodes(),
                           [this](unsigned n) { return getLpusForNumaNode(n).size(); }) &&
           sameSizeAsFirst(getNumberNumaNodes(),
                           [this](unsigned n) { return getPhysicalCoresForNumaNode(n).size(); }) &&
           sameSizeAsFirst(getNumberSockets(),
                           [this](unsigned s) { return getLpusForSocket(s).size(); }) &&
           sameSizeAsFirst(getNumberSockets(),
                           [this](unsigned s) { return getPhysicalCoresForSocket(s).size(); });
}

bool CpuTopology::computeSocketsEqualToNumaNodes() const {
    if (getNumberSockets() != getNumberNumaNodes())
        return false;
    for (unsigned i = 0; i < getNumberSockets(); ++i)
        if (getLpusForSocket(i) != getLpusForNumaNode(i))
            return false;
    return true;
}

// ---- Counts, members and containers: the tables' look-ups

unsigned CpuTopology::getNumberLpus() const {
    return _impl->getNumberLpus();
}
unsigned CpuTopology::getNumberPhysicalCores() const {
    return _impl->getNumberPhysicalCores();
}
unsigned CpuTopology::getNumberNumaNodes() const {
    return _impl->getNumberNumaNodes();
}
unsigned CpuTopology::getNumberSockets() const {
    return _impl->getNumberSockets();
}

unsigned CpuTopology::getNumberLpus(unsigned physicalCore) const {
    return _impl->getNumberLpus(physicalCore);
}

unsigned CpuTopology::getNumberLpusForNumaNode(unsigned numaNode) const {
    return static_cast<unsigned>(getLpusForNumaNode(numaNode).size());
}

unsigned CpuTopology::getNumberPhysicalCoresForNumaNode(unsigned numaNode) const {
    return static_cast<unsigned>(getPhysicalCoresForNumaNode(numaNode).size());
}

unsigned CpuTopology::getNumberLpusForSocket(unsigned socket) const {
    return static_cast<unsigned>(getLpusForSocket(socket).size());
}

unsigned CpuTopology::getNumberPhysicalCoresForSocket(unsigned socket) const {
    return static_cast<unsigned>(getPhysicalCoresForSocket(socket).size());
}

std::vector<unsigned> CpuTopology::getLpusForPhysicalCore(unsigned physicalCore) const {
    return _impl->getLpusForPhysicalCore(physicalCore);
}

std::vector<unsigned> CpuTopology::getLpusForNumaNode(unsigned numaNode) const {
    return _impl->getLpusForNumaNode(numaNode);
}

std::vector<unsigned> CpuTopology::getLpusForSocket(unsigned socket) const {
    return _impl->getLpusForSocket(socket);
}

std::vector<unsigned> CpuTopology::getPhysicalCoresForNumaNode(unsigned numaNode) const {
    return _impl->getPhysicalCoresForNumaNode(numaNode);
}

std::vector<unsigned> CpuTopology::getPhysicalCoresForSocket(unsigned socket) const {
    return _impl->getPhysicalCoresForSocket(socket);
}

unsigned CpuTopology::getPhysicalCoreForLpu(unsigned lpu) const {
    return _impl->getPhysicalCoreForLpu(lpu);
}

unsigned CpuTopology::getNumaNodeForLpu(unsigned lpu) const {
    return _impl->getNumaNodeForLpu(lpu);
}

unsigned CpuTopology::getNumaNodeForPhysicalCore(unsigned physicalCore) const {
    return _impl->getNumaNodeForPhysicalCore(physicalCore);
}

unsigned CpuTopology::getSocketForLpu(unsigned lpu) const {
    return _impl->getSocketForLpu(lpu);
}

unsigned CpuTopology::getSocketForPhysicalCore(unsigned physicalCore) const {
    return _impl->getSocketForPhysicalCore(physicalCore);
}

// ---- Masks

namespace {

// The union of the masks of `units`.
template <typename MaskOf>
AffinityMask unionOf(const std::vector<unsigned>& units, const MaskOf& maskOf) {
    AffinityMask mask;
    for (unsigned unit : units)
        mask |= maskOf(unit);
    return mask;
}

}  // namespace

AffinityMask CpuTopology::getLpuMask(unsigned lpu) const {
    return _impl->getLpuMask(lpu);
}

AffinityMask CpuTopology::getLpuMask(const std::vector<unsigned>& lpus) const {
    return unionOf(lpus, [this](unsigned lpu) { return getLpuMask(lpu); });
}

AffinityMask CpuTopology::getPhysicalCoreMask(unsigned physicalCore) const {
    return _impl->getPhysicalCoreMask(physicalCore);
}

AffinityMask CpuTopology::getPhysicalCoreMask(const std::vector<unsigned>& physicalCores) const {
    return unionOf(physicalCores, [this](unsigned physicalCore) { return getPhysicalCoreMask(physicalCore); });
}

AffinityMask CpuTopology::getNumaMask(unsigned numaNode) const {
    return _impl->getNumaMask(numaNode);
}

AffinityMask CpuTopology::getNumaMask(const std::vector<unsigned>& numaNodes) const {
    return unionOf(numaNodes, [this](unsigned numaNode) { return getNumaMask(numaNode); });
}

AffinityMask CpuTopology::getSocketMask(unsigned socket) const {
    return _impl->getSocketMask(socket);
}

AffinityMask CpuTopology::getSocketMask(const std::vector<unsigned>& sockets) const {
    return unionOf(sockets, [this](unsigned socket) { return getSocketMask(socket); });
}

AffinityMask CpuTopology::getTopologyMask() const {
    if (!_impl->_topology)
        return {};
    return AffinityMask(hwloc_get_root_obj(_impl->_topology)->cpuset);
}

AffinityMask CpuTopology::getAllowedMask() const {
    if (!_impl->_topology)
        return {};
    return AffinityMask(hwloc_topology_get_allowed_cpuset(_impl->_topology));
}

AffinityMask CpuTopology::restrictToAvailableResources(AffinityMask&& mask) const {
    AffinityMask restricted(std::move(mask));
    restricted &= getAllowedMask();
    return restricted;
}

std::vector<unsigned> CpuTopology::getLpusFromMask(const AffinityMask& mask) const {
    return _impl->getLpusFromMask(mask);
}

std::vector<unsigned> CpuTopology::getPhysicalCoresFromMask(const AffinityMask& mask) const {
    return _impl->getPhysicalCoresFromMask(mask);
}

std::vector<unsigned> CpuTopology::getNumaNodesFromMask(const AffinityMask& mask) const {
    return _impl->getNumaNodesFromMask(mask);
}

std::vector<unsigned> CpuTopology::getSocketsFromMask(const AffinityMask& mask) const {
    return _impl->getSocketsFromMask(mask);
}

// ---- Flags

bool CpuTopology::reliableLpuInformationAvailable() const {
    return !_impl->_lpus.empty();
}

bool CpuTopology::reliablePhysicalCoreInformationAvailable() const {
    return !_impl->_physicalCores.empty();
}

bool CpuTopology::reliableNumaNodeInformationAvailable() const {
    return !_impl->_numaNodeLpus.empty();
}

bool CpuTopology::reliableSocketInformationAvailable() const {
    return !_impl->_socketLpus.empty();
}

bool CpuTopology::usesSMT() const {
    return getNumberLpus() > getNumberPhysicalCores();
}
bool CpuTopology::isSymmetric() const {
    return _impl->_symmetric;
}
bool CpuTopology::socketsEqualToNumaNodes() const {
    return _impl->_socketsEqualToNumaNodes;
}

// ---- Selection and text

std::vector<unsigned> CpuTopology::getLpuSubset(const std::vector<unsigned>& lpus, unsigned count,
                                                bool spreadOverNumaNodes,
                                                bool spreadOverPhysicalCores) const {
    const bool byNumaNode = spreadOverNumaNodes && reliableNumaNodeInformationAvailable();
    std::map<unsigned, CoreGroups> numaGroups;
    for (unsigned lpu : lpus) {
        const unsigned numaKey = byNumaNode ? getNumaNodeForLpu(lpu) : 0;
        const unsigned coreKey = spreadOverPhysicalCores ? getPhysicalCoreForLpu(lpu) : 0;
        numaGroups[numaKey][coreKey].push_back(lpu);
    }
    const std::size_t target = std::min<std::size_t>(lpus.size(), count);
    std::vector<unsigned> taken;
    taken.reserve(target);
    while (taken.size() < target)
        takeOnePass(numaGroups, target, taken);
    std::sort(taken.begin(), taken.end());
    return taken;
}

std::string CpuTopology::print(bool sockets, bool numaNodes, bool physicalCores, bool summary,
                               unsigned indent, unsigned maxItems) const {
    return CpuTopologyPrinter(*this, _impl->_printWidths)
        .print(sockets, numaNodes, physicalCores, summary, indent, maxItems);
}

std::string CpuTopology::printAffinityMask(const AffinityMask& mask, unsigned maxItems) const {
    return CpuTopologyPrinter(*this, _impl->_printWidths).printAffinityMask(mask, maxItems);
}

}  // namespace tolm
