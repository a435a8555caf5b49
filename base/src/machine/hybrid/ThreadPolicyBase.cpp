#include "machine/hybrid/ThreadPolicyBase.h"

#include "machine/topology/ThreadBinder.h"
#include "neo/InternalError.h"

namespace tolm {

ThreadPolicyBase::ThreadPolicyBase(unsigned int nThreads, bool bindThreads)
    : ThreadPolicyBase(nThreads, bindThreads, Configuration()) {}

ThreadPolicyBase::ThreadPolicyBase(unsigned int nThreads, bool bindThreads,
                                   Configuration configuration)
    : _nThreads(nThreads),
      _bindThreads(bindThreads),
      _configuration(std::move(configuration)),
      _boundLpus(nThreads, -1) {
    TOLM_ASSERT(nThreads > 0, "A thread policy needs at least one thread");
}

ThreadPolicyBase::~ThreadPolicyBase() = default;

void ThreadPolicyBase::setThreadAffinity(const CpuTopology& topology,
                                         const AffinityMask& processMask) {
    if (_bindThreads)
        _binder = std::make_unique<ThreadBinder>(topology, processMask, _nThreads);
}

void ThreadPolicyBase::bindWorker(unsigned int thread) {
    if (_binder && _binder->bindCallingThread(thread))
        _boundLpus[thread] = static_cast<int>(_binder->getLpu(thread));
}

std::string ThreadPolicyBase::getBindingReport() const {
    std::string text;
    for (unsigned int thread = 0; thread < _nThreads; ++thread) {
        const int lpu = _boundLpus[thread];
        text += (thread ? ", thread " : "thread ") + std::to_string(thread) +
                (lpu < 0 ? " unbound" : " -> LPU " + std::to_string(lpu));
    }
    return text;
}

}  // namespace tolm
