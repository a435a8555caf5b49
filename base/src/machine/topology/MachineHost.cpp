#include "machine/topology/MachineHost.h"

#include <algorithm>
#include <cstdio>

#include "machine/topology/Affinity.h"
#include "machine/comm/Communicator.h"
#include "machine/topology/CpuBinder.h"
#include "machine/topology/CpuBindingCollisions.h"
#include "machine/topology/CpuTopology.h"
#include "machine/core/Machine.h"
#include "machine/topology/ProcessAffinitySummary.h"
#include "machine/topology/ServerProcesses.h"
#include "neo/InternalError.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"

namespace tolm {

unsigned MachineHost::_topologyDiscoveries = 0;

namespace {

// hwloc refuses this text: when a host's first process found no topology, the others build
// none either and fall back exactly as it did (an empty text would discover again).
const char* const noTopology = "none";

std::vector<unsigned> lpusOf(const AffinityMask& mask) {
    return {mask.begin(), mask.end()};
}

std::string lpuList(const AffinityMask& mask) {
    return ProcessAffinitySummary::lpuList(mask);
}

// A mask as `count` 64-bit words, LPU i in bit i % 64 of word i / 64.
std::vector<std::uint64_t> toWords(const AffinityMask& mask, std::size_t count) {
    std::vector<std::uint64_t> words(count, 0);
    for (const unsigned lpu : mask) {
        if (lpu / 64 < count)
            words[lpu / 64] |= std::uint64_t(1) << (lpu % 64);
    }
    return words;
}

AffinityMask fromWords(const std::uint64_t* words, std::size_t count) {
    AffinityMask mask;
    for (std::size_t word = 0; word < count; ++word) {
        for (unsigned bit = 0; bit < 64; ++bit) {
            if (words[word] >> bit & 1u)
                mask.set(static_cast<unsigned>(word * 64 + bit));
        }
    }
    return mask;
}

// The executable name of this server, also before the machine has recorded it.
std::string programName() {
    const std::string& recorded = Machine::getExecutableName();
    return recorded.empty() ? ServerProcesses::ownExecutableName() : recorded;
}

// "1 process", "2 processes"
std::string counted(unsigned count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "es");
}

std::string joined(const std::vector<unsigned>& numbers) {
    std::string text;
    for (const unsigned number : numbers)
        text += (text.empty() ? "" : ", ") + std::to_string(number);
    return text;
}

std::vector<unsigned> otherThan(const std::vector<unsigned>& pids,
                                const std::vector<unsigned>& excluded) {
    std::vector<unsigned> others;
    for (const unsigned pid : pids) {
        if (std::find(excluded.begin(), excluded.end(), pid) == excluded.end())
            others.push_back(pid);
    }
    return others;
}

}  // namespace

MachineHost::MachineHost() {
    Communicator* world = Machine::isParallel() ? Machine::globalCommunicator() : nullptr;
    _hostName = world ? world->myName() : Platform::process().hostName();
    const auto pid = static_cast<unsigned>(Platform::process().pid());
    const std::vector<std::string> names = gatherHostNames(_hostName);
    std::vector<unsigned> pids{pid};
    if (world)
        world->allGather(pid, pids);
    for (unsigned rank = 0; rank < names.size(); ++rank)
        _hostPidMap.emplace(names[rank], std::make_pair(pids[rank], rank));
    std::vector<std::string> distinct;
    getHostNames(distinct);
    _numberHosts = static_cast<unsigned>(distinct.size());
    getMpiRanks(_hostRanks);
    std::sort(_hostRanks.begin(), _hostRanks.end());
    _masterOnHost = _hostRanks.front() == 0;
    if (world)
        buildCommunicators(*world);
    _topology = shareTopology();
    _available = _topology->restrictToAvailableResources(_topology->getTopologyMask());
    _pinnedAtStart =
        CpuBindingCollisions::isPinned(Affinity::getProcessAffinity(*_topology), _available);
}

MachineHost::~MachineHost() = default;

std::vector<std::string> MachineHost::gatherHostNames(const std::string& mine) {
    if (!Machine::isParallel())
        return {mine};
    Communicator& world = *Machine::globalCommunicator();
    std::vector<unsigned> lengths;
    world.allGather(MessageLimits::toUnsigned(mine.size()), lengths);
    std::uint64_t total = 0;
    for (const unsigned length : lengths)
        total += length;
    std::string all(total, '\0');
    world.allGatherVector(mine.data(), lengths[world.myRank()], all.data(), lengths, {});
    std::vector<std::string> names;
    std::size_t offset = 0;
    for (const unsigned length : lengths) {
        names.push_back(all.substr(offset, length));
        offset += length;
    }
    return names;
}

void MachineHost::buildCommunicators(Communicator& world) {
    _intraHostComm = world.createCommunicator(_hostRanks);
    // Every process knows every host's ranks, so each finds the hosts' first processes alone.
    std::vector<unsigned> firsts;
    for (auto it = _hostPidMap.begin(); it != _hostPidMap.end();
         it = _hostPidMap.upper_bound(it->first))
        firsts.push_back(it->second.second);
    std::sort(firsts.begin(), firsts.end());
    _interHostComm = world.createCommunicator(firsts);
}

std::unique_ptr<CpuTopology> MachineHost::shareTopology() {
    if (!hasIntraHostComm())
        return discoverTopology();
    std::unique_ptr<CpuTopology> discovered;
    std::string xml;
    if (firstProcessOnHost()) {
        discovered = discoverTopology();
        xml = discovered->toString();
        if (xml.empty())
            xml = noTopology;
    }
    _intraHostComm->broadcast(xml, 0);
    return discovered ? std::move(discovered) : std::make_unique<CpuTopology>(xml);
}

std::unique_ptr<CpuTopology> MachineHost::discoverTopology() {
    ++_topologyDiscoveries;
    return std::make_unique<CpuTopology>();
}

void MachineHost::getHostNames(std::vector<std::string>& names) const {
    names.clear();
    for (auto it = _hostPidMap.begin(); it != _hostPidMap.end();
         it = _hostPidMap.upper_bound(it->first))
        names.push_back(it->first);
}

unsigned MachineHost::getNumberProcesses() const {
    return static_cast<unsigned>(_hostPidMap.count(_hostName));
}

void MachineHost::getPids(std::vector<unsigned>& pids) const {
    getPids(_hostName, pids);
}

void MachineHost::getPids(const std::string& host, std::vector<unsigned>& pids) const {
    pids.clear();
    const auto [first, last] = _hostPidMap.equal_range(host);
    for (auto it = first; it != last; ++it)
        pids.push_back(it->second.first);
}

void MachineHost::getMpiRanks(std::vector<unsigned>& ranks) const {
    getMpiRanks(_hostName, ranks);
}

void MachineHost::getMpiRanks(const std::string& host, std::vector<unsigned>& ranks) const {
    ranks.clear();
    const auto [first, last] = _hostPidMap.equal_range(host);
    for (auto it = first; it != last; ++it)
        ranks.push_back(it->second.second);
}

Communicator& MachineHost::getIntraHostComm() const {
    TOLM_ASSERT(hasIntraHostComm(), "Cannot access Intra-host Communicator in serial");
    return *_intraHostComm;
}

Communicator& MachineHost::getInterHostComm() const {
    TOLM_ASSERT(hasInterHostComm(),
                Machine::isSerial()
                    ? "Cannot access Intra-host Communicator in serial"
                    : "Only the first process of a host has the Inter-host Communicator");
    return *_interHostComm;
}

unsigned MachineHost::getIntraHostRank() const {
    return hasIntraHostComm() ? _intraHostComm->myRank() : 0;
}

unsigned MachineHost::isOverSubscribed() const {
    const auto cores =
        static_cast<unsigned>(_topology->getPhysicalCoresFromMask(_available).size());
    const unsigned processes = getNumberProcesses();
    return processes > cores ? processes - cores : 0;
}

bool MachineHost::hasMoreProcessesThanLpus() const {
    return getNumberProcesses() > _available.count();
}

bool MachineHost::hasMultipleServersRunning() const {
    return ServerProcesses::find(programName()).size() > getNumberProcesses();
}

std::vector<unsigned> MachineHost::otherServerPids() const {
    std::vector<unsigned> ours;
    getPids(ours);
    return otherThan(ServerProcesses::find(programName()), ours);
}

bool MachineHost::bindProcesses() {
    if (isOverSubscribed() != 0) {
        _binding = Binding::OverSubscribed;
        return false;
    }
    const bool bound = CpuBinder::bind(getIntraHostRank(), getNumberProcesses(), *_topology,
                                       _available, Machine::getCpuBindingPolicy());
    _binding = bound ? Binding::Bound : Binding::Refused;
    return bound;
}

AffinityMask MachineHost::getHostAffinity() const {
    AffinityMask hostAffinity;
    for (const AffinityMask& mask : gatherHostAffinities(Affinity::getProcessAffinity(*_topology)))
        hostAffinity |= mask;
    return hostAffinity;
}

std::vector<AffinityMask> MachineHost::gatherHostAffinities(const AffinityMask& mine) const {
    if (!hasIntraHostComm())
        return {mine};
    // All processes of the host share the topology, and so the width of the masks: one call.
    unsigned highest = 0;
    for (const unsigned lpu : _topology->getTopologyMask())
        highest = lpu;
    const std::size_t count = highest / 64 + 1;
    Communicator& host = *_intraHostComm;
    const std::vector<std::uint64_t> words = toWords(mine, count);
    std::vector<std::uint64_t> all(count * host.size());
    host.allGather(words.data(), count, all.data());
    std::vector<AffinityMask> masks;
    for (unsigned rank = 0; rank < host.size(); ++rank)
        masks.push_back(fromWords(all.data() + rank * count, count));
    return masks;
}

bool MachineHost::anyOnHost(bool mine) const {
    int any = mine ? 1 : 0;
    if (hasIntraHostComm())
        _intraHostComm->allReduce(any, QMX_MPI_MAX);
    return any != 0;
}

bool MachineHost::releaseCollidingProcesses() {
    const auto collisions = CpuBindingCollisions::find(
        gatherHostAffinities(Affinity::getProcessAffinity(*_topology)), _available);
    bool colliding = false;
    for (const auto& collision : collisions) {
        const unsigned me = getIntraHostRank();
        colliding = colliding || collision.first == me || collision.second == me;
        if (!firstProcessOnHost())
            continue;
        OS::Log::warning("CPU binding collision on host " + _hostName + ": ranks " +
                         std::to_string(_hostRanks[collision.first]) + " and " +
                         std::to_string(_hostRanks[collision.second]) + " are both bound to " +
                         ProcessAffinitySummary::namedLpus(lpusOf(collision.shared)) +
                         "; they may now run on all available LPUs (" + lpuList(_available) + ")");
    }
    if (colliding) {
        Affinity::setProcessAffinity(*_topology, _available);
        _binding = Binding::Released;
    }
    return !collisions.empty();
}

AffinityMask MachineHost::lpusHeldByOtherJobs(std::vector<unsigned>& holders) const {
    std::vector<unsigned> held;
    holders.clear();
    if (firstProcessOnHost()) {
        std::vector<AffinityMask> masks;
        for (const unsigned pid : otherServerPids()) {
            masks.push_back(Affinity::getProcessAffinity(*_topology, pid));
            if (CpuBindingCollisions::isPinned(masks.back(), _available))
                holders.push_back(pid);
        }
        held = lpusOf(CpuBindingCollisions::pinnedLpus(masks, _available));
    }
    if (hasIntraHostComm())
        _intraHostComm->broadcast(held, 0);
    AffinityMask mask;
    for (const unsigned lpu : held)
        mask.set(lpu);
    return mask;
}

bool MachineHost::hasCpuContention(bool verbose) const {
    std::vector<unsigned> holders;
    const AffinityMask held = lpusHeldByOtherJobs(holders);
    const AffinityMask mine = Affinity::getProcessAffinity(*_topology);
    const bool contended =
        anyOnHost(CpuBindingCollisions::isPinned(mine, _available) && mine.intersectsWith(held));
    if (contended && firstProcessOnHost()) {
        std::string text = "CPU contention on host " + _hostName + ": other processes of " +
                           programName() + " are bound to " + lpuList(held) +
                           ", where processes of this job are bound";
        if (verbose)
            text += " (process ids " + joined(holders) + ")";
        OS::Log::warning(text);
    }
    return contended;
}

bool MachineHost::resolveCpuContention(bool verbose) {
    std::vector<unsigned> holders;
    const AffinityMask held = lpusHeldByOtherJobs(holders);
    const AffinityMask free = _available ^ (_available & held);
    const unsigned processes = getNumberProcesses();
    const bool rebind = _topology->getPhysicalCoresFromMask(free).size() >= processes;
    bool moved = false;
    if (rebind) {
        const unsigned policy = Machine::getCpuBindingPolicy() == Machine::LeastLoad
                                    ? Machine::Bandwidth
                                    : Machine::getCpuBindingPolicy();
        moved = CpuBinder::bind(getIntraHostRank(), processes, *_topology, free, policy);
        _binding = moved ? Binding::Bound : Binding::Refused;
    } else {
        moved = Affinity::setProcessAffinity(*_topology, _available);
        _binding = Binding::Released;
    }
    const bool everyoneMoved = !anyOnHost(!moved);
    if (firstProcessOnHost() && (verbose || !everyoneMoved)) {
        OS::Log::warning(
            "CPU contention on host " + _hostName + ": " +
            (rebind ? "processes rebound to LPUs " + lpuList(free) + ", which no other job holds"
                    : "too few free physical cores to rebind " + counted(processes, "process") +
                          "; they may run on all available LPUs (" + lpuList(_available) + ")") +
            (everyoneMoved ? "" : "; the system refused to move some of them"));
    }
    return everyoneMoved;
}

void MachineHost::getSystemInformation(Properties& information) const {
    std::vector<unsigned> pids;
    getPids(pids);
    information.set("host", _hostName);
    information.set("processes", getNumberProcesses());
    information.set("ranks", _hostRanks);
    information.set("pids", pids);
    information.set("masterOnHost", _masterOnHost);
    information.set("lpus", _topology->getNumberLpus());
    information.set("physicalCores", _topology->getNumberPhysicalCores());
    information.set("numaNodes", _topology->getNumberNumaNodes());
    information.set("sockets", _topology->getNumberSockets());
    information.set("availableLpus", lpusOf(_available));
    information.set("overSubscribedBy", isOverSubscribed());
    information.set("topology", _topology->print(true, true, true, true, 2, 16));
}

void MachineHost::getAffinityProperties(Properties& properties) const {
    properties = ProcessAffinitySummary::makeRecord(*this);
}

void MachineHost::gatherAffinityPropertiesToMaster(Properties& properties) const {
    Properties mine;
    getAffinityProperties(mine);
    if (firstProcessOnHost()) {
        Properties system;
        getSystemInformation(system);
        mine.setChild(ProcessAffinitySummary::systemKey, system);
    }
    std::vector<Properties> all{mine};
    if (Machine::isParallel())
        Machine::globalCommunicator()->gather(mine, all);
    if (!all.empty())
        properties = ProcessAffinitySummary::collect(all);
}

void MachineHost::printProcessAffinitySummary(bool verbose, bool extended) {
    warnAboutUnboundProcesses();
    gatherAffinityPropertiesToMaster(_startUpBinding);
    if (!(verbose || extended) || _startUpBinding.empty())
        return;
    const std::string report = ProcessAffinitySummary::format(
        _startUpBinding, _numberHosts, ProcessAffinitySummary::policyName(), extended);
    std::fputs(report.c_str(), stdout);
    std::fflush(stdout);
}

void MachineHost::warnAboutUnboundProcesses() const {
    if (_binding == Binding::OverSubscribed && firstProcessOnHost()) {
        const auto cores =
            static_cast<unsigned>(_topology->getPhysicalCoresFromMask(_available).size());
        OS::Log::warning("Host " + _hostName + " runs " + counted(getNumberProcesses(), "process") +
                         " on " + std::to_string(cores) + " available physical " +
                         (cores == 1 ? "core" : "cores") + ": the processes are not bound to LPUs");
    }
    if (_binding == Binding::Refused) {
        OS::Log::warning("Rank " + std::to_string(Machine::getPartitionId()) + " on host " +
                         _hostName + " could not be bound to an LPU");
    }
}

}  // namespace tolm
