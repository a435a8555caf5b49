// The hybrid context and the shared-memory scopes in a serial run (no MPI at all), the thread
// policy on its own, and the grouping arithmetic of the socket and NUMA-node scopes.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "machine/comm/FieldLoopState.h"
#include "machine/hybrid/HybridMachine.h"
#include "machine/hybrid/HybridMpiThreadContext.h"
#include "machine/hybrid/HybridMpiThreadOperation.h"
#include "machine/core/Machine.h"
#include "machine/comm/ShmemGroups.h"
#include "machine/hybrid/ThreadParallelContext.h"
#include "machine/hybrid/WorkerThreadPolicy.h"
#include "support/Argv.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using List = std::vector<unsigned>;

using test::failureOf;

class SerialMachine : public testing::Test {
  protected:
    void SetUp() override {
        test::Argv argv{"tolm-test", "-s"};
        Machine::ArgumentMap consumed;
        Machine::startCommunicators(argv.argc(), argv.argv(), consumed);
    }
    void TearDown() override {
        FieldLoopState::setIdle();
        Machine::stopCommunicators();
        Machine::reset();
    }
};

class Counting : public HybridMpiThreadOperation {
  public:
    void execute(const HybridMachine& machine) override {
        serial = machine.isSerial() && !machine.isParallel();
        communicator = machine.getCommunicator() != nullptr;
        nLocalCore = machine.nLocalCore();
        threadContext = ThreadParallelContext::isActive();
        threadPolicy().run([&](unsigned) { ++runs; });
    }
    bool serial = false;
    bool communicator = true;
    unsigned nLocalCore = 0;
    bool threadContext = false;
    std::atomic<int> runs{0};
};

TEST_F(SerialMachine, TheOperationRunsOnOneThreadWithoutCommunicators) {
    Counting op;
    HybridMpiThreadContext::execute(SOCKET_SCOPE, op);
    EXPECT_TRUE(op.serial);
    EXPECT_FALSE(op.communicator);
    EXPECT_EQ(op.nLocalCore, 1u);
    EXPECT_TRUE(op.threadContext);
    EXPECT_EQ(op.runs, 1);
    EXPECT_FALSE(ThreadParallelContext::isActive());
    EXPECT_FALSE(HybridMpiThreadContext::isActive());
}

TEST_F(SerialMachine, ScopeCommunicatorsAndFieldLoopsRefuse) {
    EXPECT_EQ(failureOf([] { Machine::sharedMemCommunicator(HOST_SCOPE); }),
              "Attempt to access sharedMemCommunicator in serial | isParallel()");
    EXPECT_EQ(failureOf([] { Machine::hasSparseCommunicator(NUMA_SCOPE); }),
              "Attempt to access sparse communicator in serial | isParallel()");
    Counting op;
    FieldLoopState::setBusy();
    EXPECT_EQ(failureOf([&] { HybridMpiThreadContext::execute(HOST_SCOPE, op); }),
              "Cannot start hybrid thread context inside FieldLoops! | !FieldLoopState::busy()");
    EXPECT_EQ(op.runs, 0);
}

TEST(ShmemCommunicatorsBeforeTheHost, BuildingThemNeedsTheHostMap) {
    EXPECT_EQ(failureOf([] { Machine::buildShmemCommunicators(); }), "host not built yet | _host");
}

// Its policy only exists while the context executes it.
class PolicyOutsideExecute : public HybridMpiThreadOperation {
  public:
    void execute(const HybridMachine&) override {}
    void touch() { threadPolicy(); }
};

TEST(HybridOperation, HasNoPolicyOutsideTheContext) {
    PolicyOutsideExecute op;
    EXPECT_EQ(failureOf([&] { op.touch(); }),
              "No thread policy outside HybridMpiThreadContext::execute | _policy");
}

TEST(WorkerThreadPolicy, RunsEveryIndexOnItsOwnThreadStepAfterStep) {
    WorkerThreadPolicy policy(3, false);
    std::thread::id ids[3];
    std::atomic<int> sum{0};
    for (int step = 1; step <= 2; ++step) {
        policy.run([&](unsigned thread) {
            ids[thread] = std::this_thread::get_id();
            sum += step * int(thread + 1);
        });
    }
    EXPECT_EQ(sum, 6 + 12);
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_NE(ids[1], ids[2]);
    EXPECT_NE(ids[0], std::this_thread::get_id());
    EXPECT_EQ(policy.getBindingReport(), "thread 0 unbound, thread 1 unbound, thread 2 unbound");
}

TEST(WorkerThreadPolicy, AWorkersErrorReachesTheCallerAfterEveryWorkerFinished) {
    WorkerThreadPolicy policy(2, false);
    std::atomic<int> finished{0};
    EXPECT_EQ(test::errorOf<std::runtime_error>([&] {
                  policy.run([&](unsigned thread) {
                      if (thread == 1)
                          throw std::runtime_error("worker failed");
                      std::this_thread::sleep_for(std::chrono::milliseconds(50));
                      ++finished;
                  });
              }),
              "worker failed");
    EXPECT_EQ(finished, 1);
    policy.run([&](unsigned) { ++finished; });
    EXPECT_EQ(finished, 3) << "the policy goes on after an error";
}

TEST(ShmemGroups, SpanningProcessesAreDealtOutInEvenBlocksOfHostRanks) {
    EXPECT_EQ(ShmemGroups::evenBlock(0, 5, 2), (List{0, 1, 2}));
    EXPECT_EQ(ShmemGroups::evenBlock(2, 5, 2), (List{0, 1, 2}));
    EXPECT_EQ(ShmemGroups::evenBlock(3, 5, 2), (List{3, 4}));
    EXPECT_EQ(ShmemGroups::evenBlock(6, 7, 3), (List{5, 6}));
    EXPECT_EQ(ShmemGroups::evenBlock(2, 7, 3), (List{0, 1, 2}));
    EXPECT_EQ(ShmemGroups::evenBlock(3, 7, 3), (List{3, 4}));
    EXPECT_EQ(ShmemGroups::evenBlock(1, 2, 4), (List{1})) << "more units than processes";
    EXPECT_EQ(ShmemGroups::evenBlock(1, 3, 0), (List{0, 1, 2})) << "no unit known";
    const ShmemGroups::UnitLists oneSpans{{0}, {0, 1}, {1}, {1}};
    EXPECT_EQ(ShmemGroups::membersOf(3, oneSpans, 2), (List{2, 3}));
}

TEST(ShmemGroups, ProcessesOnOneUnitEachAreGroupedByUnit) {
    const ShmemGroups::UnitLists lists{{1}, {0}, {1}, {}, {0}, {}};
    EXPECT_EQ(ShmemGroups::membersOf(0, lists, 2), (List{0, 2}));
    EXPECT_EQ(ShmemGroups::membersOf(4, lists, 2), (List{1, 4}));
    EXPECT_EQ(ShmemGroups::membersOf(5, lists, 2), (List{3, 5})) << "unknown units together";
}

}  // namespace
}  // namespace tolm
