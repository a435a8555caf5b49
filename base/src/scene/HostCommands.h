#pragma once

namespace tolm {

class Controller;

// The server command of the host map:
//   "HostMap"  answers with the job's hosts and where every process was bound at start-up:
//     "hosts": per host, in the order of the hosts' first ranks, its name, global ranks,
//              process ids, topology counts, available LPUs, oversubscription and the
//              topology as CpuTopology::print writes it (MachineHost::getSystemInformation),
//     "processes": per process, in rank order, its binding record
//              (MachineHost::getAffinityProperties),
//     "numberHosts", "policy" (the "-cpubind" word).
//   The master gathered the records during start-up, so the command needs no other process.
void registerHostCommands(Controller& controller);

}  // namespace tolm
