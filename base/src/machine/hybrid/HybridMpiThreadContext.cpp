#include "machine/hybrid/HybridMpiThreadContext.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <typeinfo>
#include <vector>

#include "machine/topology/Affinity.h"
#include "machine/topology/AffinityRelaxer.h"
#include "machine/comm/Communicator.h"
#include "machine/topology/CpuTopology.h"
#include "machine/comm/FieldLoopState.h"
#include "machine/hybrid/HybridMachine.h"
#include "machine/hybrid/HybridMpiThreadOperation.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "machine/hybrid/ThreadParallelContext.h"
#include "machine/hybrid/ThreadPolicyBase.h"
#include "neo/EventTracker.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

std::string demangled(const char* name) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    return status == 0 && text ? std::string(text.get()) : std::string(name);
}

// The LPUs the processes of this process's group may run on: the operation's threads run
// there while the group's other processes sleep. Collective over the group.
AffinityMask groupAffinity(ShmemScope scope, const AffinityMask& mine) {
    if (Machine::isSerial())
        return mine;
    Communicator& group = Machine::sharedMemCommunicator(scope);
    const std::vector<unsigned> lpus(mine.begin(), mine.end());
    std::vector<unsigned> counts;
    group.allGather(static_cast<unsigned>(lpus.size()), counts);
    unsigned total = 0;
    for (const unsigned count : counts)
        total += count;
    std::vector<unsigned> all(total);
    group.allGatherVector(lpus.data(), counts[group.myRank()], all.data(), counts, {});
    AffinityMask mask;
    for (const unsigned lpu : all)
        mask.set(lpu);
    return mask;
}

// Marks the context on every process, also when the operation fails.
class ActiveFlag {
  public:
    explicit ActiveFlag(bool& flag) : _flag(flag) { _flag = true; }
    ~ActiveFlag() { _flag = false; }
    ActiveFlag(const ActiveFlag&) = delete;
    ActiveFlag& operator=(const ActiveFlag&) = delete;

  private:
    bool& _flag;
};

}  // namespace

void HybridMpiThreadContext::execute(ShmemScope scope, HybridMpiThreadOperation& op) {
    TOLM_ASSERT(!FieldLoopState::busy(), "Cannot start hybrid thread context inside FieldLoops!");
    const CpuTopology& topology = Machine::getHost().getCpuTopology();
    const bool processBound = Affinity::isProcessBound(topology);
    const AffinityRelaxer relaxed(topology,
                                  groupAffinity(scope, Affinity::getProcessAffinity(topology)));
    const char* typeName = typeid(op).name();
    const EventTracker::Track track("HybridMpiThreadContext", typeName);
    const ActiveFlag active(_active);
    if (Machine::isSerial() || Machine::hasSparseCommunicator(scope))
        runOperation(scope, op, processBound, demangled(typeName));
    if (Machine::isParallel()) {
        // Spin time 0: the waiting processes sleep between polls at once, so that their
        // processors are free for the threads.
        Machine::globalCommunicator()->noSpinSynchronise(0.0);
    }
}

void HybridMpiThreadContext::runOperation(ShmemScope scope, HybridMpiThreadOperation& op,
                                          bool processBound, const std::string& name) {
    const ThreadParallelContext::Scope threaded;
    const unsigned int nThreads =
        Machine::isSerial() ? 1 : Machine::sharedMemCommunicator(scope).size();
    const bool bindThreads = processBound && Machine::bindThreads();
    std::unique_ptr<ThreadPolicyBase> policy = op.createThreadPolicy(nThreads, bindThreads);
    if (bindThreads) {
        const CpuTopology& topology = Machine::getHost().getCpuTopology();
        policy->setThreadAffinity(topology, Affinity::getProcessAffinity(topology));
    }
    op._policy = policy.get();
    try {
        op.execute(HybridMachine(scope));
    } catch (...) {
        op._policy = nullptr;
        throw;
    }
    op._policy = nullptr;
    if (Machine::enableThreadBindingVerbosity())
        printBindingReport(scope, name, policy->getBindingReport());
}

// The participants' reports, printed by the first of them (the master) in rank order.
void HybridMpiThreadContext::printBindingReport(ShmemScope scope, const std::string& name,
                                                const std::string& report) {
    const std::string mine = "  rank " + std::to_string(Machine::getPartitionId()) + ": " + report;
    std::vector<std::string> all{mine};
    Communicator* sparse = Machine::isSerial() ? nullptr : Machine::hasSparseCommunicator(scope);
    if (sparse)
        sparse->gather(mine, all, 0);
    if (sparse && sparse->myRank() != 0)
        return;
    std::printf("Thread binding of %s (%s scope):\n", name.c_str(), shmemScopeName(scope));
    for (const std::string& line : all)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

}  // namespace tolm
