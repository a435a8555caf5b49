#pragma once
// Helpers of the tests on a running machine: the global communicator, a communicator's
// members, a call counter and a lowered message limit.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "support/Failure.h"
#include "support/MpiWorld.h"

namespace tolm::mpitest {

inline Communicator& world() {
    return *Machine::globalCommunicator();
}
inline unsigned int rank() {
    return world().myRank();
}
inline unsigned int size() {
    return world().size();
}

// Global ranks of a communicator's members, in its rank order.
inline std::vector<unsigned int> membersOf(Communicator& comm) {
    std::vector<unsigned int> ranks;
    comm.allGather(rank(), ranks);
    return ranks;
}

// Counts the MPI calls of each operation, and the bytes they carried.
class CallCounter : public Communicator::StatisticsRecorder {
  public:
    CallCounter() { Communicator::setStatisticsRecorder(this); }
    ~CallCounter() override { Communicator::setStatisticsRecorder(nullptr); }
    void open(const char* operation, std::uint64_t bytes) override {
        ++calls[operation];
        this->bytes[operation] += bytes;
    }
    void close(int) override {}

    std::map<std::string, int> calls;
    std::map<std::string, std::uint64_t> bytes;
};

// Lowers the global communicator's message limit for one test.
class LoweredLimit {
  public:
    explicit LoweredLimit(std::uint64_t limit) : _saved(world().getMaxBufferSize()) { set(limit); }
    ~LoweredLimit() { set(_saved); }

  private:
    static void set(std::uint64_t limit) {
        testing::internal::CaptureStdout();  // the change is announced on standard output
        world().setMaxBufferSize(limit);
        testing::internal::GetCapturedStdout();
    }
    std::uint64_t _saved;
};

using test::failureOf;

}  // namespace tolm::mpitest
