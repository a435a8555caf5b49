#pragma once
// Helpers of the tests that really bind this process and its threads.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "machine/topology/Affinity.h"
#include "machine/topology/AffinityMask.h"
#include "machine/comm/Communicator.h"
#include "machine/topology/CpuTopology.h"
#include "machine/topology/MachineHost.h"

namespace tolm {

// The binding operations that only the binders may call.
struct AffinityTesting {
    static bool setProcessAffinity(const CpuTopology& topology, const AffinityMask& mask) {
        return Affinity::setProcessAffinity(topology, mask);
    }
    static bool clearProcessAffinity(const CpuTopology& topology) {
        return Affinity::clearProcessAffinity(topology);
    }
    static bool setProcessAffinityToCurrentCpuLocation(const CpuTopology& topology) {
        return Affinity::setProcessAffinityToCurrentCpuLocation(topology);
    }
    static bool setThreadAffinity(const CpuTopology& topology, const AffinityMask& mask) {
        return Affinity::setThreadAffinity(topology, mask);
    }
    static bool clearThreadAffinity(const CpuTopology& topology) {
        return Affinity::clearThreadAffinity(topology);
    }
    static bool setThreadAffinityToCurrentCpuLocation(const CpuTopology& topology) {
        return Affinity::setThreadAffinityToCurrentCpuLocation(topology);
    }
};

// The communicator of the hosts' first processes, which only reports use.
struct MachineHostTesting {
    static bool hasInterHostComm(const MachineHost& host) { return host.hasInterHostComm(); }
    static Communicator& getInterHostComm(const MachineHost& host) {
        return host.getInterHostComm();
    }
};

namespace test {

// What the operating system says the calling thread may run on (not asking hwloc).
inline AffinityMask threadAffinityFromSystem() {
    cpu_set_t set;
    CPU_ZERO(&set);
    AffinityMask mask;
    if (pthread_getaffinity_np(pthread_self(), sizeof set, &set) != 0)
        return mask;
    for (unsigned cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &set))
            mask.set(cpu);
    }
    return mask;
}

inline void setThreadAffinityInSystem(const AffinityMask& mask) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const unsigned cpu : mask)
        CPU_SET(cpu, &set);
    ASSERT_EQ(pthread_setaffinity_np(pthread_self(), sizeof set, &set), 0);
}

// Puts the calling thread back where it was allowed to run when the guard was made.
class RestoredAffinity {
  public:
    RestoredAffinity() : _saved(threadAffinityFromSystem()) {}
    ~RestoredAffinity() { setThreadAffinityInSystem(_saved); }
    RestoredAffinity(const RestoredAffinity&) = delete;
    RestoredAffinity& operator=(const RestoredAffinity&) = delete;

    const AffinityMask& saved() const { return _saved; }

  private:
    AffinityMask _saved;
};

// Another process (posing as another server of the same program on this host), pinned to the
// given processors; killed when it goes out of scope.
class OtherServer {
  public:
    explicit OtherServer(const AffinityMask& pinned) {
        int ready[2];
        if (pipe(ready) != 0)
            return;
        _pid = fork();
        if (_pid == 0) {
            test::setThreadAffinityInSystem(pinned);
            const char byte = 1;
            (void)!write(ready[1], &byte, 1);
            pause();
            _exit(0);
        }
        char byte = 0;
        (void)!read(ready[0], &byte, 1);
        close(ready[0]);
        close(ready[1]);
    }
    ~OtherServer() {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    OtherServer(const OtherServer&) = delete;
    OtherServer& operator=(const OtherServer&) = delete;

    pid_t pid() const { return _pid; }

  private:
    pid_t _pid = -1;
};

// Tests that bind this process for real: they need two processors this process may use, on
// two physical cores, and skip where there are fewer (e.g. under `taskset -c 0`).
class RealBinding : public ::testing::Test {
  protected:
    void SetUp() override {
        const AffinityMask usable = _restore.saved() & topology.getAllowedMask();
        lpus.assign(usable.begin(), usable.end());
        if (lpus.size() < 2 || topology.getPhysicalCoresFromMask(usable).size() < 2)
            GTEST_SKIP() << "needs two processors on two cores to bind to";
        lpus.resize(2);
    }

    AffinityMask only(unsigned lpu) const { return AffinityMask().set(lpu); }

    RestoredAffinity _restore;
    const CpuTopology topology;
    // Two processors this process may run on, on two physical cores.
    std::vector<unsigned> lpus;
};

}  // namespace test
}  // namespace tolm
