#include <gtest/gtest.h>

#include <sched.h>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "machine/core/Machine.h"
#include "machine/topology/Affinity.h"
#include "machine/topology/AffinityRelaxer.h"
#include "machine/topology/ThreadBinder.h"
#include "support/Argv.h"
#include "topology/BindingTestSupport.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::maskOf;
using test::RealBinding;
using test::threadAffinityFromSystem;
using Set = AffinityTesting;

TEST_F(RealBinding, AnEmptyMaskIsRefusedAndChangesNothing) {
    const AffinityMask before = threadAffinityFromSystem();
    EXPECT_FALSE(Set::setProcessAffinity(topology, AffinityMask()));
    EXPECT_FALSE(Set::setThreadAffinity(topology, AffinityMask()));
    EXPECT_EQ(threadAffinityFromSystem(), before);
}

TEST_F(RealBinding, TheProcessRunsWhereItWasBound) {
    for (const unsigned lpu : lpus) {
        ASSERT_TRUE(Set::setProcessAffinity(topology, only(lpu)));
        EXPECT_EQ(threadAffinityFromSystem(), only(lpu));
        EXPECT_EQ(Affinity::getProcessAffinity(topology), only(lpu));
        EXPECT_TRUE(Affinity::isProcessBound(topology));
        sched_yield();
        EXPECT_EQ(static_cast<unsigned>(sched_getcpu()), lpu);
    }
    ASSERT_TRUE(Set::setProcessAffinity(topology, maskOf({lpus[0], lpus[1]})));
    EXPECT_FALSE(Affinity::isProcessBound(topology));  // two physical cores
}

TEST_F(RealBinding, ClearingLetsTheProcessRunOnEveryAllowedLpu) {
    ASSERT_TRUE(Set::setProcessAffinity(topology, only(lpus[1])));
    ASSERT_TRUE(Set::clearProcessAffinity(topology));
    EXPECT_EQ(threadAffinityFromSystem(), topology.getAllowedMask());
}

TEST_F(RealBinding, TheCurrentLocationIsOneLpuWhereTheProcessRan) {
    const AffinityMask before = threadAffinityFromSystem();
    ASSERT_TRUE(Set::setProcessAffinityToCurrentCpuLocation(topology));
    const AffinityMask after = threadAffinityFromSystem();
    EXPECT_EQ(after.count(), 1u);
    EXPECT_TRUE(after.isIncludedIn(before));
    ASSERT_TRUE(Set::clearThreadAffinity(topology));
    ASSERT_TRUE(Set::setThreadAffinityToCurrentCpuLocation(topology));
    EXPECT_EQ(threadAffinityFromSystem().count(), 1u);
}

TEST_F(RealBinding, AThreadBindsItselfAlone) {
    const AffinityMask mainBefore = Affinity::getThreadAffinity(topology);
    AffinityMask seenByWorker;
    bool workerBound = false;
    std::thread worker([&] {
        if (Set::setThreadAffinity(topology, only(lpus[1]))) {
            seenByWorker = Affinity::getThreadAffinity(topology);
            workerBound = Affinity::isThreadBound(topology);
        }
    });
    worker.join();
    EXPECT_EQ(seenByWorker, only(lpus[1]));
    EXPECT_TRUE(workerBound);
    EXPECT_EQ(Affinity::getThreadAffinity(topology), mainBefore);
    EXPECT_EQ(threadAffinityFromSystem(), mainBefore);
}

TEST_F(RealBinding, AnotherProcessBindingIsReadByItsId) {
    unsigned child = 0;
    {
        const test::OtherServer other(only(lpus[1]));
        child = static_cast<unsigned>(other.pid());
        EXPECT_EQ(Affinity::getProcessAffinity(topology, child), only(lpus[1]));
    }
    EXPECT_TRUE(Affinity::getProcessAffinity(topology, child).empty()) << "a process that ended";
}

TEST_F(RealBinding, ARelaxerWidensForItsScopeAndGivesTheBindingBack) {
    ASSERT_TRUE(Set::setProcessAffinity(topology, only(lpus[0])));
    {
        const AffinityRelaxer relaxed(topology, only(lpus[1]));
        EXPECT_TRUE(relaxed.isRelaxed());
        EXPECT_EQ(relaxed.getSavedAffinity(), only(lpus[0]));
        EXPECT_EQ(threadAffinityFromSystem(), maskOf({lpus[0], lpus[1]}));
    }
    EXPECT_EQ(threadAffinityFromSystem(), only(lpus[0]));
    {
        const AffinityRelaxer relaxed(topology);
        EXPECT_EQ(threadAffinityFromSystem(), topology.getAllowedMask());
    }
    EXPECT_EQ(threadAffinityFromSystem(), only(lpus[0]));
    {
        // Processors this process may not use are never added.
        const AffinityRelaxer relaxed(topology, maskOf({4000}));
        EXPECT_TRUE(relaxed.isRelaxed());
        EXPECT_EQ(threadAffinityFromSystem(), only(lpus[0]));
    }
}

TEST(FallbackBinding, WithoutATopologyNothingIsBoundOrRead) {
    test::WarningCapture log;
    const CpuTopology topology = test::loadFixture("damaged-no-pus.xml");
    const AffinityMask before = threadAffinityFromSystem();
    EXPECT_FALSE(Set::setProcessAffinity(topology, maskOf({0})));
    EXPECT_FALSE(Set::clearProcessAffinity(topology));
    EXPECT_FALSE(Set::setProcessAffinityToCurrentCpuLocation(topology));
    EXPECT_FALSE(Set::setThreadAffinity(topology, maskOf({0})));
    EXPECT_TRUE(Affinity::getProcessAffinity(topology).empty());
    EXPECT_TRUE(Affinity::getThreadAffinity(topology).empty());
    EXPECT_TRUE(Affinity::getProcessCpuLocation(topology).empty());
    EXPECT_FALSE(Affinity::isProcessBound(topology));
    EXPECT_EQ(threadAffinityFromSystem(), before);
    const AffinityRelaxer relaxed(topology);
    EXPECT_FALSE(relaxed.isRelaxed());
}

class WorkerThreads : public test::RealBinding {
  protected:
    void SetUp() override {
        Machine::reset();
        RealBinding::SetUp();
    }
    void TearDown() override { Machine::reset(); }

    // Runs `count` workers; each binds itself and reports what the system then says.
    std::vector<AffinityMask> runWorkers(const ThreadBinder& binder, unsigned count) {
        std::vector<AffinityMask> seen(count);
        std::vector<std::thread> workers;
        for (unsigned thread = 0; thread < count; ++thread) {
            workers.emplace_back([&, thread] {
                bound += binder.bindCallingThread(thread) ? 1 : 0;
                seen[thread] = threadAffinityFromSystem();
            });
        }
        for (auto& worker : workers)
            worker.join();
        return seen;
    }

    std::atomic<int> bound{0};
};

TEST_F(WorkerThreads, EachWorkerRunsOnItsOwnLpu) {
    const ThreadBinder binder(topology, maskOf({lpus[0], lpus[1]}), 2);
    ASSERT_EQ(binder.getNumberThreads(), 2u);
    const auto seen = runWorkers(binder, 2);
    EXPECT_EQ(bound, 2);
    EXPECT_EQ(seen[0], maskOf({binder.getLpu(0)}));
    EXPECT_EQ(seen[1], maskOf({binder.getLpu(1)}));
    EXPECT_NE(binder.getLpu(0), binder.getLpu(1));
    EXPECT_EQ(binder.describe(), "thread 0 -> LPU " + std::to_string(binder.getLpu(0)) +
                                     ", thread 1 -> LPU " + std::to_string(binder.getLpu(1)));
    // The thread that made the binder is left as it was.
    EXPECT_EQ(threadAffinityFromSystem(), _restore.saved());
}

TEST_F(WorkerThreads, ThreadBindingOffLeavesWorkersWhereTheProcessRuns) {
    test::parseCommonOptions({"server", "-xthreadbindoff"});
    ASSERT_FALSE(Machine::bindThreads());
    const ThreadBinder binder(topology, maskOf({lpus[0], lpus[1]}), 2);
    const auto seen = runWorkers(binder, 2);
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(seen[0], _restore.saved());
    EXPECT_EQ(seen[1], _restore.saved());
}

TEST_F(WorkerThreads, VerboseWorkersReportTheirBinding) {
    test::parseCommonOptions({"server", "-xthreadbindverbose"});
    const ThreadBinder binder(topology, maskOf({lpus[1]}), 1);
    testing::internal::CaptureStdout();
    runWorkers(binder, 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "rank 0 thread 0 bound to LPU " + std::to_string(lpus[1]) + "\n");
}

TEST_F(WorkerThreads, AWorkerWithoutAnLpuIsNotBound) {
    const ThreadBinder binder(topology, AffinityMask(), 1);
    EXPECT_EQ(binder.getNumberThreads(), 0u);
    EXPECT_FALSE(binder.bindCallingThread(0));
}

}  // namespace
}  // namespace tolm
