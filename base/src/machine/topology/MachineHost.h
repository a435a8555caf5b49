#pragma once
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "machine/topology/AffinityMask.h"
#include "neo/Properties.h"

namespace tolm {

class Communicator;
class CpuTopology;

// Where the processes of the job run: the host name of every process, the process id and
// global rank of every process grouped by host, a communicator over the processes of this
// host (ordered by global rank) and one over the first process of every host, and this
// host's CpuTopology. Host names are the only key: two processes that report the same name
// are on one host.
//
// The Machine builds exactly one during start-up (Machine::getHost). Construction is
// collective over the global communicator. The topology is discovered once per host, by the
// host's first process, and sent to the others as hwloc XML, so that hwloc explores each
// machine once and all processes of a host number its LPUs alike.
//
// The LPUs available to the processes of a host are those of the topology's allowed set (the
// cgroup's cpuset), whatever affinity a launcher or `taskset` gave the processes: two ranks
// started under `taskset -c 0` on a two-core host are bound to LPUs 0 and 1.
//
// Errors: InternalError for the communicators of a serial run (see below). A failed hwloc
// discovery is no error: every process of the host falls back alike (see CpuTopology).
//
// Read-only after construction except for the binding operations, which run during
// start-up on the main thread. Operations marked "collective over this host" must be called
// by every process of the host at the same point; in a serial run they are local.
class MachineHost {
  public:
    // Host name -> (process id, global rank), one entry per process of the job.
    using HostPidMap = std::multimap<std::string, std::pair<unsigned, unsigned>>;

    MachineHost();
    ~MachineHost();
    MachineHost(const MachineHost&) = delete;
    MachineHost& operator=(const MachineHost&) = delete;

    // Every process's `mine` (its host name), in global-rank order; `mine` alone in a serial
    // run. Collective over the global communicator.
    static std::vector<std::string> gatherHostNames(const std::string& mine);

    const std::string& getHostName() const { return _hostName; }
    // The distinct host names, in increasing order.
    void getHostNames(std::vector<std::string>& names) const;
    unsigned getNumberHosts() const { return _numberHosts; }
    // Processes on this host.
    unsigned getNumberProcesses() const;
    // Of this host's processes / of the named host's processes, in global-rank order.
    void getPids(std::vector<unsigned>& pids) const;
    void getPids(const std::string& host, std::vector<unsigned>& pids) const;
    void getMpiRanks(std::vector<unsigned>& ranks) const;
    void getMpiRanks(const std::string& host, std::vector<unsigned>& ranks) const;
    const HostPidMap& getHostPidMap() const { return _hostPidMap; }

    // The processes of this host; InternalError "Cannot access Intra-host Communicator in
    // serial" in a serial run.
    Communicator& getIntraHostComm() const;
    bool hasIntraHostComm() const { return _intraHostComm != nullptr; }
    // 0 in a serial run.
    unsigned getIntraHostRank() const;
    bool firstProcessOnHost() const { return getIntraHostRank() == 0; }
    // Whether the master (global rank 0) runs on this host.
    bool masterOnHost() const { return _masterOnHost; }

    const CpuTopology& getCpuTopology() const { return *_topology; }
    // The LPUs available to this host's processes (see the class comment).
    const AffinityMask& getAvailableMask() const { return _available; }
    // Processes of this host beyond its available physical cores; 0 when not oversubscribed.
    unsigned isOverSubscribed() const;
    // Whether this host runs more processes than its available LPUs, so that a process that
    // spins while it waits takes the processor from one that works.
    bool hasMoreProcessesThanLpus() const;
    // Whether more processes of this program run on this host than this job has here: some
    // other job of the same server shares the host.
    bool hasMultipleServersRunning() const;

    // Binds this process to an LPU by the policy of "-cpubind" (Machine::getCpuBindingPolicy).
    // An oversubscribed host is left unbound. True when this process was bound.
    bool bindProcesses();
    // Whether this process was pinned (to fewer than the available LPUs) when the host map
    // was built, before the machine bound anything: the launcher or the user pinned it.
    bool wasPinnedAtStart() const { return _pinnedAtStart; }
    // Whether this process runs where bindProcesses (or the contention repair) bound it.
    bool isBoundByMachine() const { return _binding == Binding::Bound; }
    // The union of the affinities of this host's processes. Collective over this host.
    AffinityMask getHostAffinity() const;
    // Finds processes of this host pinned to overlapping LPUs, warns about each pair and lets
    // every colliding process run on all available LPUs again. True when any collided.
    // Collective over this host.
    bool releaseCollidingProcesses();
    // Whether a process of this host is pinned to LPUs that a pinned process of another job
    // of this program holds; warns when so (naming the other processes when `verbose`).
    // Collective over this host.
    bool hasCpuContention(bool verbose) const;
    // Moves this host's processes off the LPUs other jobs hold: rebinds them to the LPUs left
    // when enough physical cores are left, else lets them run on all available LPUs. True
    // when every process of the host moved. Collective over this host.
    bool resolveCpuContention(bool verbose);

    // This host: names, ranks, process ids, topology and oversubscription.
    void getSystemInformation(Properties& information) const;
    // This process: host, rank, pid and the LPUs it may run on (see ProcessAffinitySummary).
    void getAffinityProperties(Properties& properties) const;
    // On the master: "processes", every process's affinity properties in rank order, and
    // "hosts", every host's system information in the order of the hosts' first ranks;
    // elsewhere `properties` is left alone. Collective over the job.
    void gatherAffinityPropertiesToMaster(Properties& properties) const;
    // Start-up: warns about processes left unbound and gathers every process's affinity
    // properties to the master, who keeps them (getStartUpBinding). With `verbose` the master
    // prints the binding report (see ProcessAffinitySummary), with `extended` also each host's
    // topology and every process's main thread. Collective over the job.
    void printProcessAffinitySummary(bool verbose, bool extended);
    // On the master, the affinity properties that printProcessAffinitySummary gathered;
    // empty elsewhere and before.
    const Properties& getStartUpBinding() const { return _startUpBinding; }

    // hwloc discoveries made by host maps of this process so far (1 on each host's first
    // process, 0 on the others).
    static unsigned getNumberTopologyDiscoveries() { return _topologyDiscoveries; }

  private:
    friend struct MachineHostTesting;
    // What the machine did to this process's binding, last.
    enum class Binding { NotAttempted, Bound, OverSubscribed, Refused, Released };

    // The first process of every host; only those have one.
    Communicator& getInterHostComm() const;
    bool hasInterHostComm() const { return _interHostComm != nullptr; }

    void buildCommunicators(Communicator& world);
    std::unique_ptr<CpuTopology> shareTopology();
    std::unique_ptr<CpuTopology> discoverTopology();
    // Every process's mask, in intra-host rank order (LPUs beyond this host's topology are
    // dropped). Collective over this host.
    std::vector<AffinityMask> gatherHostAffinities(const AffinityMask& mine) const;
    // Whether any process of this host says `mine`. Collective over this host.
    bool anyOnHost(bool mine) const;
    std::vector<unsigned> otherServerPids() const;
    // LPUs that pinned processes of other jobs hold. Collective over this host.
    AffinityMask lpusHeldByOtherJobs(std::vector<unsigned>& holders) const;
    void warnAboutUnboundProcesses() const;

    std::string _hostName;
    HostPidMap _hostPidMap;
    unsigned _numberHosts = 1;
    std::vector<unsigned> _hostRanks;
    std::unique_ptr<Communicator> _intraHostComm;
    std::unique_ptr<Communicator> _interHostComm;
    bool _masterOnHost = true;
    std::unique_ptr<CpuTopology> _topology;
    AffinityMask _available;
    bool _pinnedAtStart = false;
    Binding _binding = Binding::NotAttempted;
    Properties _startUpBinding;

    static unsigned _topologyDiscoveries;
};

}  // namespace tolm
