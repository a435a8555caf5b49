#include "machine/topology/ThreadBinder.h"

#include <cstdio>

#include "machine/topology/Affinity.h"
#include "machine/topology/CpuBinder.h"
#include "machine/topology/CpuTopology.h"
#include "machine/core/Machine.h"
#include "neo/InternalError.h"

namespace tolm {

ThreadBinder::ThreadBinder(const CpuTopology& topology, const AffinityMask& processMask,
                           unsigned threads)
    : _topology(topology), _lpus(CpuBinder::selectThreadLpus(threads, topology, processMask)) {}

unsigned ThreadBinder::getLpu(unsigned thread) const {
    TOLM_ASSERT(thread < _lpus.size(), "Thread index out of range in ThreadBinder");
    return _lpus[thread];
}

bool ThreadBinder::bindCallingThread(unsigned thread) const {
    if (!Machine::bindThreads() || thread >= _lpus.size())
        return false;
    const unsigned lpu = _lpus[thread];
    const bool bound = Affinity::setThreadAffinity(_topology, _topology.getLpuMask(lpu));
    if (Machine::enableThreadBindingVerbosity()) {
        std::printf("rank %u thread %u %s LPU %u\n", Machine::getPartitionId(), thread,
                    bound ? "bound to" : "could not be bound to", lpu);
        std::fflush(stdout);
    }
    return bound;
}

std::string ThreadBinder::describe() const {
    std::string text;
    for (unsigned thread = 0; thread < _lpus.size(); ++thread) {
        text += (thread ? ", thread " : "thread ") + std::to_string(thread) + " -> LPU " +
                std::to_string(_lpus[thread]);
    }
    return text;
}

}  // namespace tolm
