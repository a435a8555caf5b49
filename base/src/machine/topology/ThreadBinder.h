#pragma once
#include <string>
#include <vector>

#include "machine/topology/AffinityMask.h"

namespace tolm {

class CpuTopology;

// Places the worker threads of this process, one LPU each, on the LPUs the process may run
// on, spread over NUMA nodes and then physical cores (threads beyond the LPUs wrap round).
// Made on the thread that starts the workers; each worker then binds itself:
//
//     const ThreadBinder binder(topology, Affinity::getProcessAffinity(topology), n);
//     ... on worker i: binder.bindCallingThread(i);
//
// Worker threads are left unbound when thread binding is off ("-xthreadbindoff"); with
// "-xthreadbindverbose" every worker reports its binding on standard output.
//
// Errors: none are thrown; `bindCallingThread` returns false when the system refused.
// Read-only once made, so any worker may use it.
class ThreadBinder {
  public:
    ThreadBinder(const CpuTopology& topology, const AffinityMask& processMask, unsigned threads);

    unsigned getNumberThreads() const { return static_cast<unsigned>(_lpus.size()); }
    // The LPU of worker `thread`.
    unsigned getLpu(unsigned thread) const;
    // Binds the calling thread as worker `thread`; true when it is bound there, false also
    // when there is no LPU for it (the process may run nowhere this topology knows).
    bool bindCallingThread(unsigned thread) const;
    // "thread 0 -> LPU 2, thread 1 -> LPU 3"
    std::string describe() const;

  private:
    const CpuTopology& _topology;
    std::vector<unsigned> _lpus;
};

}  // namespace tolm
