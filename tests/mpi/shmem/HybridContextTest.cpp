#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "machine/topology/Affinity.h"
#include "machine/topology/CpuTopology.h"
#include "machine/hybrid/HybridMachine.h"
#include "machine/hybrid/HybridMpiThreadContext.h"
#include "machine/hybrid/HybridMpiThreadOperation.h"
#include "machine/hybrid/ShmemWindow.h"
#include "machine/hybrid/ThreadParallelContext.h"
#include "machine/hybrid/ThreadPolicyBase.h"
#include "shmem/ShmemTesting.h"
#include "topology/BindingTestSupport.h"

namespace tolm {
namespace {

using namespace shmemtest;

// Notes what the context gave it and where its threads ran.
class Recorder : public HybridMpiThreadOperation {
  public:
    void execute(const HybridMachine& machine) override {
        executed = true;
        sparse = machine.getCommunicator();
        nLocalCore = machine.nLocalCore();
        parallel = machine.isParallel();
        contextActive = HybridMpiThreadContext::isActive();
        threadContext = ThreadParallelContext::depth();
        ThreadPolicyBase& policy = threadPolicy();
        std::mutex mutex;
        workerMasks.resize(policy.getNumberThreads());
        policy.run([&](unsigned thread) {
            const CpuTopology& topology = Machine::getHost().getCpuTopology();
            const AffinityMask where = Affinity::getThreadAffinity(topology);
            std::this_thread::sleep_for(hold);
            std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
            indices.insert(thread);
            workerMasks[thread] = where;
        });
        report = policy.getBindingReport();
        if (done)
            std::atomic_ref<int>(*done).store(1);
    }

    std::chrono::milliseconds hold{0};
    int* done = nullptr;
    bool executed = false;
    Communicator* sparse = nullptr;
    unsigned nLocalCore = 0;
    bool parallel = false;
    bool contextActive = false;
    unsigned threadContext = 0;
    std::set<std::thread::id> threads;
    std::set<unsigned> indices;
    std::vector<AffinityMask> workerMasks;
    std::string report;
};

TEST(HybridContext, TheFirstProcessOfEachGroupRunsTheOperationOnAThreadPerGroupProcess) {
    for (const ShmemScope scope : {NUMA_SCOPE, SOCKET_SCOPE, HOST_SCOPE}) {
        SCOPED_TRACE(shmemScopeName(scope));
        Communicator& group = Machine::sharedMemCommunicator(scope);
        Recorder op;
        HybridMpiThreadContext::execute(scope, op);
        EXPECT_FALSE(HybridMpiThreadContext::isActive());
        EXPECT_EQ(ThreadParallelContext::depth(), 0u);
        ASSERT_EQ(op.executed, group.myRank() == 0);
        EXPECT_EQ(ranksWhere(op.executed), ranksWhere(Machine::hasSparseCommunicator(scope)));
        if (!op.executed)
            continue;
        EXPECT_EQ(op.sparse, Machine::hasSparseCommunicator(scope));
        EXPECT_EQ(op.nLocalCore, group.size());
        EXPECT_TRUE(op.parallel);
        EXPECT_TRUE(op.contextActive);
        EXPECT_EQ(op.threadContext, 1u);
        EXPECT_EQ(op.threads.size(), group.size()) << "one thread per process of the group";
        EXPECT_FALSE(op.threads.contains(std::this_thread::get_id()));
        EXPECT_EQ(op.indices.size(), group.size());
        EXPECT_EQ(*op.indices.rbegin(), group.size() - 1);
    }
}

TEST(HybridContext, WaitingProcessesLeaveOnlyOnceTheOperationHasEnded) {
    ShmemWindow<int> done(1);
    if (Machine::sharedMemCommunicator(HOST_SCOPE).myRank() == 0)
        done[0] = 0;
    done.fence();
    Recorder op;
    op.hold = std::chrono::milliseconds(300);
    op.done = done.data();
    HybridMpiThreadContext::execute(HOST_SCOPE, op);
    EXPECT_EQ(std::atomic_ref<int>(done[0]).load(), 1)
        << "left the final barrier before the operation ended";
    done.fence();
}

// Each process bound to one of two processors: the threads of a group go to its processors,
// and the process gets its own binding back afterwards.
using BoundProcesses = test::RealBinding;

TEST_F(BoundProcesses, HybridThreadsAreBoundToTheLpusOfTheirGroup) {
    const CpuTopology& hostTopology = Machine::getHost().getCpuTopology();
    Communicator& group = Machine::sharedMemCommunicator(HOST_SCOPE);
    const AffinityMask own = only(lpus[group.myRank() % 2]);
    const AffinityMask saved = Affinity::getProcessAffinity(hostTopology);
    ASSERT_TRUE(AffinityTesting::setProcessAffinity(hostTopology, own));
    AffinityMask groupLpus = only(lpus[0]);
    if (group.size() > 1)
        groupLpus.set(lpus[1]);

    Recorder op;
    HybridMpiThreadContext::execute(HOST_SCOPE, op);
    EXPECT_EQ(Affinity::getProcessAffinity(hostTopology), own) << "binding given back";
    AffinityTesting::setProcessAffinity(hostTopology, saved);
    if (!op.executed)
        return;
    AffinityMask used;
    for (const AffinityMask& mask : op.workerMasks) {
        EXPECT_EQ(mask.count(), 1u) << mask.toHexString(0);
        EXPECT_TRUE(mask.isIncludedIn(groupLpus)) << mask.toHexString(0);
        used |= mask;
    }
    EXPECT_EQ(used, groupLpus) << "threads spread over the group's processors";
    std::string expected;
    for (unsigned thread = 0; thread < op.workerMasks.size(); ++thread) {
        expected += (thread ? ", thread " : "thread ") + std::to_string(thread) + " -> LPU " +
                    std::to_string(*op.workerMasks[thread].begin());
    }
    EXPECT_EQ(op.report, expected);
}

}  // namespace
}  // namespace tolm
