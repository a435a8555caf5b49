#pragma once
#include "machine/topology/AffinityMask.h"

namespace tolm {

class CpuTopology;

// Widens where the process may run for as long as it lives, and gives the process back the
// binding it had when it goes. A bound process that is about to run threads on processors
// that other processes lend it (or to start a child that must not inherit a one-LPU binding)
// holds one in a scope:
//
//     {
//         AffinityRelaxer relaxed(topology, lentLpus);
//         ... threads run on the process's own LPU and on lentLpus ...
//     }   // bound as before
//
// Errors: none are thrown; `isRelaxed()` says whether the system accepted the wider binding.
// The destructor restores quietly: a refused restore leaves the wider binding.
class AffinityRelaxer {
  public:
    // The process's binding widened by `lpus` (restricted to the LPUs it may use).
    AffinityRelaxer(const CpuTopology& topology, const AffinityMask& lpus);
    // The process's binding widened to every LPU it may use.
    explicit AffinityRelaxer(const CpuTopology& topology);
    ~AffinityRelaxer();
    AffinityRelaxer(const AffinityRelaxer&) = delete;
    AffinityRelaxer& operator=(const AffinityRelaxer&) = delete;

    bool isRelaxed() const { return _relaxed; }
    // The binding the process had before, and gets back.
    const AffinityMask& getSavedAffinity() const { return _saved; }

  private:
    const CpuTopology& _topology;
    AffinityMask _saved;
    bool _relaxed = false;
};

}  // namespace tolm
