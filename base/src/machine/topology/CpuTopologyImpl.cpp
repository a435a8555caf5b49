#include "machine/topology/CpuTopologyImpl.h"

#include <climits>
#include <numeric>
#include <set>

#include "machine/topology/CpuTopologyXmlCheck.h"
#include "neo/InternalError.h"
#include "platform/Log.h"

namespace tolm {
namespace {

using Builder = CpuTopologyTableBuilder;

std::vector<HwlocObj> containersOf(const std::vector<HwlocContainer>& list) {
    std::vector<HwlocObj> objects;
    objects.reserve(list.size());
    for (const HwlocContainer& container : list)
        objects.push_back(container.self);
    return objects;
}

std::vector<unsigned> numbersOf(const HwlocContainer& container) {
    std::vector<unsigned> numbers;
    numbers.reserve(container.objs.size());
    for (const HwlocObj& obj : container.objs)
        numbers.push_back(obj.index);
    return numbers;
}

std::vector<unsigned> firstNumbers(unsigned count) {
    std::vector<unsigned> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0u);
    return numbers;
}

}  // namespace

CpuTopology::Impl::Impl(const std::string& xml) {
    if (load(xml))
        extractTopology();
}

CpuTopology::Impl::~Impl() {
    destroyTopology();
}

bool CpuTopology::Impl::load(const std::string& xml) {
    if (!xml.empty() && !acceptXml(xml))
        return false;
    if (hwloc_topology_init(&_topology) != 0) {
        _topology = nullptr;
        return false;
    }
    unsigned long flags = HWLOC_TOPOLOGY_FLAG_INCLUDE_DISALLOWED;
    bool loaded = hwloc_topology_set_flags(_topology, flags) == 0;
    if (loaded && !xml.empty()) {
        // The text came from this host: binding must act on this machine, and the processors
        // this process may use are its own, not those of the process that exported the text.
        flags |=
            HWLOC_TOPOLOGY_FLAG_IS_THISSYSTEM | HWLOC_TOPOLOGY_FLAG_THISSYSTEM_ALLOWED_RESOURCES;
        loaded = xml.size() < INT_MAX &&
                 hwloc_topology_set_xmlbuffer(_topology, xml.c_str(),
                                              static_cast<int>(xml.size() + 1)) == 0 &&
                 hwloc_topology_set_flags(_topology, flags) == 0;
    }
    loaded = loaded && hwloc_topology_load(_topology) == 0;
    if (!loaded)
        destroyTopology();
    return loaded;
}

// hwloc refuses XML it cannot read, but crashes on some defects of XML it can; those are
// caught here, before hwloc sees the text, and the text is refused the same way, with a
// warning naming the defect.
bool CpuTopology::Impl::acceptXml(const std::string& xml) {
    const CpuTopologyXmlCheck check(xml);
    if (check.wellFormed() && !check.loadable())
        OS::Log::warning("CpuTopology::Impl::load: The hwloc XML topology is damaged (" +
                         check.defect() + "); no topology is loaded.");
    return check.loadable();
}

void CpuTopology::Impl::destroyTopology() {
    if (_topology)
        hwloc_topology_destroy(_topology);
    _topology = nullptr;
}

void CpuTopology::Impl::extractTopology() {
    _lpus = Builder::getAllObjectsOfType(_topology, HWLOC_OBJ_PU);
    if (!_lpus.empty() && !Builder::isOrdered(_lpus)) {
        Builder::warn(
            "The hwloc topology data structure was successfully initialized, but the expected "
            "LPU ordering is wrong.");
        _lpus.clear();
    }
    if (_lpus.empty()) {
        Builder::warn(
            "The hwloc topology data structure was successfully initialized, but no LPUs were "
            "detected.");
        destroyTopology();
        return;
    }
    extractPhysicalCores();
    extractNumaNodes();
    extractSockets();
}

void CpuTopology::Impl::extractPhysicalCores() {
    const std::vector<HwlocObj> cores = Builder::getAllObjectsOfType(_topology, HWLOC_OBJ_CORE);
    if (cores.empty())
        return;
    _physicalCores = Builder::nest(cores, {}, _lpus);
    if (!Builder::isOrdered(_physicalCores)) {
        Builder::warn(
            "Physical cores were detected, but the expected core - or nested LPU - ordering is "
            "wrong.");
        _physicalCores.clear();
        return;
    }
    _lpuPhysicalCore = Builder::buildMapping(_physicalCores, _lpus.size());
    if (!Builder::isValidMapping(_lpuPhysicalCore, _physicalCores.size())) {
        Builder::warn("Invalid LPU to physical core mapping detected.");
        _physicalCores.clear();
        _lpuPhysicalCore.clear();
    }
}

void CpuTopology::Impl::extractNumaNodes() {
    const std::vector<HwlocObj> nodes = Builder::getAllUniqueNumaNodes(_topology);
    if (nodes.empty())
        return;
    extractContainerLevel(
        nodes, Builder::getParents(nodes),
        {_numaNodeLpus, _numaNodePhysicalCores, _lpuNumaNode, _physicalCoreNumaNode,
         "NUMA nodes were detected, but the expected NUMA node - or nested LPU - ordering is "
         "wrong.",
         "Invalid LPU to NUMA node mapping detected.",
         "Either no physical cores were detected for the NUMA nodes or the expectednested "
         "physical core ordering is wrong.",
         "Invalid physical core to NUMA node mapping detected."});
}

void CpuTopology::Impl::extractSockets() {
    const std::vector<HwlocObj> sockets =
        Builder::getAllObjectsOfType(_topology, HWLOC_OBJ_PACKAGE);
    if (sockets.empty())
        return;
    extractContainerLevel(
        sockets, {},
        {_socketLpus, _socketPhysicalCores, _lpuSocket, _physicalCoreSocket,
         "Sockets were detected, but the expected socket - or nested LPU - ordering is wrong.",
         "Invalid LPU to socket mapping detected.",
         "Either no physical cores were detected for the sockets or the expectednested "
         "physical core ordering is wrong.",
         "Invalid physical core to socket mapping detected."});
}

void CpuTopology::Impl::extractContainerLevel(const std::vector<HwlocObj>& objects,
                                              const std::vector<hwloc_obj_t>& roots,
                                              const ContainerLevel& level) {
    level.lpus = Builder::nest(objects, roots, _lpus);
    if (!Builder::isOrdered(level.lpus)) {
        Builder::warn(level.lpuOrderingWarning);
        level.lpus.clear();
        return;
    }
    level.lpuMapping = Builder::buildMapping(level.lpus, _lpus.size());
    if (!Builder::isValidMapping(level.lpuMapping, level.lpus.size())) {
        Builder::warn(level.lpuMappingWarning);
        level.lpus.clear();
        level.lpuMapping.clear();
        return;
    }
    if (!_physicalCores.empty())
        extractNestedPhysicalCores(objects, roots, level);
}

void CpuTopology::Impl::extractNestedPhysicalCores(const std::vector<HwlocObj>& objects,
                                                   const std::vector<hwloc_obj_t>& roots,
                                                   const ContainerLevel& level) {
    level.physicalCores = Builder::nest(objects, roots, containersOf(_physicalCores));
    bool valid = Builder::isOrdered(level.physicalCores);
    if (!valid) {
        Builder::warn(level.physicalCoreOrderingWarning);
    } else {
        level.physicalCoreMapping =
            Builder::buildMapping(level.physicalCores, _physicalCores.size());
        valid = Builder::isValidMapping(level.physicalCoreMapping, level.physicalCores.size());
        if (!valid)
            Builder::warn(level.physicalCoreMappingWarning);
    }
    if (!valid) {
        level.physicalCores.clear();
        level.physicalCoreMapping.clear();
    }
}

// ---- Counts

unsigned CpuTopology::Impl::getNumberLpus() const {
    return _lpus.empty() ? 1u : static_cast<unsigned>(_lpus.size());
}

unsigned CpuTopology::Impl::getNumberPhysicalCores() const {
    return _physicalCores.empty() ? getNumberLpus() : static_cast<unsigned>(_physicalCores.size());
}

unsigned CpuTopology::Impl::getNumberNumaNodes() const {
    return _numaNodeLpus.empty() ? 1u : static_cast<unsigned>(_numaNodeLpus.size());
}

unsigned CpuTopology::Impl::getNumberSockets() const {
    return _socketLpus.empty() ? 1u : static_cast<unsigned>(_socketLpus.size());
}

unsigned CpuTopology::Impl::getNumberLpus(unsigned physicalCore) const {
    TOLM_ASSERT(physicalCore < getNumberPhysicalCores(), "Physical core number out of range.");
    if (_physicalCores.empty())
        return 1;
    return static_cast<unsigned>(_physicalCores[physicalCore].objs.size());
}

// ---- Members of one container

std::vector<unsigned> CpuTopology::Impl::getLpusForPhysicalCore(unsigned physicalCore) const {
    if (_physicalCores.empty()) {
        TOLM_ASSERT(physicalCore < getNumberPhysicalCores(), "Physical core number out of range.");
        return {physicalCore};
    }
    TOLM_ASSERT(physicalCore < _physicalCores.size(), "Physical core number out of range.");
    TOLM_ASSERT(!_physicalCores[physicalCore].objs.empty(), "Physical core without LPUs.");
    return numbersOf(_physicalCores[physicalCore]);
}

std::vector<unsigned> CpuTopology::Impl::getLpusForNumaNode(unsigned numaNode) const {
    if (_numaNodeLpus.empty()) {
        TOLM_ASSERT(numaNode == 0u, "NUMA node number out of range.");
        return firstNumbers(getNumberLpus());
    }
    TOLM_ASSERT(numaNode < _numaNodeLpus.size(), "NUMA node number out of range.");
    TOLM_ASSERT(!_numaNodeLpus[numaNode].objs.empty(), "NUMA node without LPUs.");
    return numbersOf(_numaNodeLpus[numaNode]);
}

std::vector<unsigned> CpuTopology::Impl::getLpusForSocket(unsigned socket) const {
    if (_socketLpus.empty()) {
        TOLM_ASSERT(socket == 0u, "Socket number out of range.");
        return firstNumbers(getNumberLpus());
    }
    TOLM_ASSERT(socket < _socketLpus.size(), "Socket number out of range.");
    TOLM_ASSERT(!_socketLpus[socket].objs.empty(), "Socket without LPUs.");
    return numbersOf(_socketLpus[socket]);
}

std::vector<unsigned> CpuTopology::Impl::getPhysicalCoresForNumaNode(unsigned numaNode) const {
    if (_numaNodePhysicalCores.empty())
        return physicalCoresOf(getLpusForNumaNode(numaNode));
    TOLM_ASSERT(numaNode < _numaNodePhysicalCores.size(), "NUMA node number out of range.");
    TOLM_ASSERT(!_numaNodePhysicalCores[numaNode].objs.empty(), "NUMA node without cores.");
    return numbersOf(_numaNodePhysicalCores[numaNode]);
}

std::vector<unsigned> CpuTopology::Impl::getPhysicalCoresForSocket(unsigned socket) const {
    if (_socketPhysicalCores.empty())
        return physicalCoresOf(getLpusForSocket(socket));
    TOLM_ASSERT(socket < _socketPhysicalCores.size(), "Socket number out of range.");
    TOLM_ASSERT(!_socketPhysicalCores[socket].objs.empty(), "Socket without cores.");
    return numbersOf(_socketPhysicalCores[socket]);
}

std::vector<unsigned> CpuTopology::Impl::physicalCoresOf(const std::vector<unsigned>& lpus) const {
    std::set<unsigned> cores;
    for (unsigned lpu : lpus)
        cores.insert(getPhysicalCoreForLpu(lpu));
    return {cores.begin(), cores.end()};
}

// ---- The container of one member

unsigned CpuTopology::Impl::getPhysicalCoreForLpu(unsigned lpu) const {
    if (_lpuPhysicalCore.empty()) {
        TOLM_ASSERT(lpu < getNumberLpus(), "LPU number out of range.");
        return lpu;
    }
    TOLM_ASSERT(lpu < _lpuPhysicalCore.size(), "LPU number out of range.");
    return _lpuPhysicalCore[lpu];
}

unsigned CpuTopology::Impl::getNumaNodeForLpu(unsigned lpu) const {
    if (_lpuNumaNode.empty()) {
        TOLM_ASSERT(lpu < getNumberLpus(), "LPU number out of range.");
        return 0;
    }
    TOLM_ASSERT(lpu < _lpuNumaNode.size(), "LPU number out of range.");
    return _lpuNumaNode[lpu];
}

unsigned CpuTopology::Impl::getSocketForLpu(unsigned lpu) const {
    if (_lpuSocket.empty()) {
        TOLM_ASSERT(lpu < getNumberLpus(), "LPU number out of range.");
        return 0;
    }
    TOLM_ASSERT(lpu < _lpuSocket.size(), "LPU number out of range.");
    return _lpuSocket[lpu];
}

// Without a core-to-node table a core belongs to the node of its first LPU.
unsigned CpuTopology::Impl::getNumaNodeForPhysicalCore(unsigned physicalCore) const {
    if (_physicalCoreNumaNode.empty())
        return getNumaNodeForLpu(getLpusForPhysicalCore(physicalCore).front());
    TOLM_ASSERT(physicalCore < _physicalCoreNumaNode.size(), "Physical core number out of range.");
    return _physicalCoreNumaNode[physicalCore];
}

unsigned CpuTopology::Impl::getSocketForPhysicalCore(unsigned physicalCore) const {
    if (_physicalCoreSocket.empty())
        return getSocketForLpu(getLpusForPhysicalCore(physicalCore).front());
    TOLM_ASSERT(physicalCore < _physicalCoreSocket.size(), "Physical core number out of range.");
    return _physicalCoreSocket[physicalCore];
}

// ---- Masks

AffinityMask CpuTopology::Impl::getLpuMask(unsigned lpu) const {
    if (_lpus.empty()) {
        TOLM_ASSERT(lpu == 0u, "LPU number out of range.");
        return {};
    }
    TOLM_ASSERT(lpu < _lpus.size(), "LPU number out of range.");
    return CpuTopology::wrapCpuset(_lpus[lpu].obj->cpuset);
}

AffinityMask CpuTopology::Impl::getPhysicalCoreMask(unsigned physicalCore) const {
    if (_physicalCores.empty())
        return getLpuMask(getLpusForPhysicalCore(physicalCore).front());
    TOLM_ASSERT(physicalCore < _physicalCores.size(), "Physical core number out of range.");
    return CpuTopology::wrapCpuset(_physicalCores[physicalCore].self.obj->cpuset);
}

AffinityMask CpuTopology::Impl::getNumaMask(unsigned numaNode) const {
    if (_numaNodeLpus.empty()) {
        TOLM_ASSERT(numaNode == 0u, "NUMA node number out of range.");
        return unionOfLpuMasks(firstNumbers(getNumberLpus()));
    }
    TOLM_ASSERT(numaNode < _numaNodeLpus.size(), "NUMA node number out of range.");
    return CpuTopology::wrapCpuset(_numaNodeLpus[numaNode].self.obj->cpuset);
}

AffinityMask CpuTopology::Impl::getSocketMask(unsigned socket) const {
    if (_socketLpus.empty()) {
        TOLM_ASSERT(socket == 0u, "Socket number out of range.");
        return unionOfLpuMasks(firstNumbers(getNumberLpus()));
    }
    TOLM_ASSERT(socket < _socketLpus.size(), "Socket number out of range.");
    return CpuTopology::wrapCpuset(_socketLpus[socket].self.obj->cpuset);
}

AffinityMask CpuTopology::Impl::unionOfLpuMasks(const std::vector<unsigned>& lpus) const {
    AffinityMask mask;
    for (unsigned lpu : lpus)
        mask |= getLpuMask(lpu);
    return mask;
}

std::vector<unsigned> CpuTopology::Impl::getLpusFromMask(const AffinityMask& mask) const {
    std::vector<unsigned> lpus;
    for (const HwlocObj& lpu : _lpus)
        if (CpuTopology::wrapCpuset(lpu.obj->cpuset).intersectsWith(mask))
            lpus.push_back(lpu.index);
    return lpus;
}

std::vector<unsigned> CpuTopology::Impl::intersecting(const std::vector<HwlocContainer>& list,
                                                      const AffinityMask& mask) {
    std::vector<unsigned> numbers;
    for (const HwlocContainer& container : list)
        if (CpuTopology::wrapCpuset(container.self.obj->cpuset).intersectsWith(mask))
            numbers.push_back(container.self.index);
    return numbers;
}

std::vector<unsigned> CpuTopology::Impl::getPhysicalCoresFromMask(const AffinityMask& mask) const {
    if (_physicalCores.empty())
        return getLpusFromMask(mask);
    return intersecting(_physicalCores, mask);
}

std::vector<unsigned> CpuTopology::Impl::getNumaNodesFromMask(const AffinityMask& mask) const {
    if (_numaNodeLpus.empty())
        return getLpusFromMask(mask).empty() ? std::vector<unsigned>{} : std::vector<unsigned>{0};
    return intersecting(_numaNodeLpus, mask);
}

std::vector<unsigned> CpuTopology::Impl::getSocketsFromMask(const AffinityMask& mask) const {
    if (_socketLpus.empty())
        return getLpusFromMask(mask).empty() ? std::vector<unsigned>{} : std::vector<unsigned>{0};
    return intersecting(_socketLpus, mask);
}

}  // namespace tolm
