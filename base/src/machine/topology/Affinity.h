#pragma once
#include "machine/topology/AffinityMask.h"

namespace tolm {

class CpuTopology;

// Reads and sets where the calling process, the calling thread or another process may run,
// through the hwloc topology of a CpuTopology. Every operation takes that topology; one
// without a loaded hwloc topology (the flat fallback) makes every set operation fail and
// every read give an empty mask.
//
// Errors: none are thrown. Set operations return false when the system refuses every form
// of the binding (strict first, then weaker ones); reads return an empty mask when they fail.
//
// The set operations are private, so that few places decide where anything runs: the
// CpuBinder binds processes, the ThreadBinder worker threads, the AffinityRelaxer widens and
// restores a binding, the host map releases colliding processes and moves contended ones, and
// the Machine lets a process's threads follow its main thread.
class Affinity {
  public:
    Affinity() = delete;

    // The process's binding (all its threads); empty when it cannot be read.
    static AffinityMask getProcessAffinity(const CpuTopology& topology);
    // The binding of the process `pid` of this host; empty when it cannot be read.
    static AffinityMask getProcessAffinity(const CpuTopology& topology, unsigned pid);
    // The calling thread's binding; empty when it cannot be read.
    static AffinityMask getThreadAffinity(const CpuTopology& topology);
    // The LPUs the process's threads ran on last (may be several); empty when unknown.
    static AffinityMask getProcessCpuLocation(const CpuTopology& topology);
    // Bound to exactly one physical core (one or all of its hardware threads).
    static bool isProcessBound(const CpuTopology& topology);
    static bool isThreadBound(const CpuTopology& topology);

  private:
    friend class CpuBinder;
    friend class ThreadBinder;
    friend class AffinityRelaxer;
    friend class MachineHost;
    friend class Machine;
    friend struct AffinityTesting;

    static bool setProcessAffinity(const CpuTopology& topology, const AffinityMask& mask);
    // Every LPU this process may use.
    static bool clearProcessAffinity(const CpuTopology& topology);
    // One LPU on which the process ran last.
    static bool setProcessAffinityToCurrentCpuLocation(const CpuTopology& topology);
    static bool setThreadAffinity(const CpuTopology& topology, const AffinityMask& mask);
    static bool clearThreadAffinity(const CpuTopology& topology);
    static bool setThreadAffinityToCurrentCpuLocation(const CpuTopology& topology);
};

}  // namespace tolm
