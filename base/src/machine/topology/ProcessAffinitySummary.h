#pragma once
#include <string>
#include <vector>

#include "machine/topology/AffinityMask.h"
#include "neo/Properties.h"

namespace tolm {

class CpuTopology;
class MachineHost;

// The binding report: where every process of the job may run, one line per process in
// global-rank order, in the style of MPI launchers' binding reports:
//
//   Process binding (policy bandwidth): 4 processes on 2 hosts
//   [hostA:4711] rank 0 bound to LPU 0: [B/.]
//   [hostB:4712] rank 1 bound to LPU 0: [B/.]
//   [hostA:4713] rank 2 bound to LPU 1: [./B]
//   [hostB:4714] rank 3 not bound, runs on LPUs 0-1: [B/B]
//
// When every process was pinned before the machine bound anything (MachineHost::
// wasPinnedAtStart), a line under the heading says that the launcher had pinned every rank.
//
// Each line names the host and process id in brackets, then the global rank and the LPUs
// (operating-system processor numbers, as ranges) the process may run on. The picture is the
// process's host: one bracket per socket, the socket's physical cores separated by "/", one
// character per hardware thread of a core, "B" where the process may run and "." where it
// may not; so "[BB/..][../..]" is a process on both hardware threads of the first core of a
// host with two sockets of two two-way cores. A host without LPU information shows the
// hexadecimal mask instead. A process is "bound" when the machine bound it, or when it may
// not run on every LPU available to its host's processes (MachineHost::getAvailableMask):
// a launcher or the user bound it.
//
// The extended report adds, ahead of the first process of each host, the host's topology
// (CpuTopology::print), and under every process a line with its main thread's LPUs, the
// LPUs it last ran on and the mask in the topology's terms (CpuTopology::printAffinityMask):
//
//     main thread on LPU 0; last ran on LPU 0; covers {C00}
//
// Every process describes itself in a record (`makeRecord`, the Properties of
// MachineHost::getAffinityProperties), with its own host's topology, so that the master can
// print every host without knowing its topology.
class ProcessAffinitySummary {
  public:
    ProcessAffinitySummary() = delete;

    // The key under which the first process of a host adds its host's system information
    // (MachineHost::getSystemInformation) to its record.
    static constexpr const char* systemKey = "system";

    // This process's record: "rank", "host", "pid", "hostRank", "lpus" (array), "bound",
    // "pinnedAtStart", "picture", "mainThreadLpus" (array), "lastLpus" (array) and "coverage".
    static Properties makeRecord(const MachineHost& host);
    // Every process's record, in rank order, as "processes", and the hosts' system
    // information taken out of them as "hosts".
    static Properties collect(const std::vector<Properties>& records);
    // The report of collected records, ending with a line end.
    static std::string format(const Properties& collected, unsigned numberHosts,
                              const std::string& policy, bool extended);

    // The picture of `mask` on `topology` (see above).
    static std::string picture(const CpuTopology& topology, const AffinityMask& mask);
    // "0-3,6"; "none" for an empty mask.
    static std::string lpuList(const AffinityMask& mask);
    static std::string lpuList(const std::vector<unsigned>& lpus);
    // "LPU 2" or "LPUs 0-3,6".
    static std::string namedLpus(const std::vector<unsigned>& lpus);
    // The option word of a binding policy: "bandwidth", "latency", "leastload", "disable"
    // when the machine does not bind.
    static std::string policyName();
};

}  // namespace tolm
