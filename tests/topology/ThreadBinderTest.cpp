#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "machine/core/Machine.h"
#include "machine/topology/ThreadBinder.h"
#include "support/Argv.h"
#include "topology/BindingTestSupport.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::maskOf;
using test::threadAffinityFromSystem;

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

    static void parseOptions(std::initializer_list<std::string> options) {
        test::Argv argv(options);
        Machine::ArgumentMap consumed;
        Machine::parseCommonArgvs(argv.argc(), argv.argv(), consumed);
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
    parseOptions({"server", "-xthreadbindoff"});
    ASSERT_FALSE(Machine::bindThreads());
    const ThreadBinder binder(topology, maskOf({lpus[0], lpus[1]}), 2);
    const auto seen = runWorkers(binder, 2);
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(seen[0], _restore.saved());
    EXPECT_EQ(seen[1], _restore.saved());
}

TEST_F(WorkerThreads, VerboseWorkersReportTheirBinding) {
    parseOptions({"server", "-xthreadbindverbose"});
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
