// GoogleTest output for tests that run on every rank of an MPI job. Each rank prints its own
// failures, prefixed "[rank N]"; rank 0 prints the progress and, after each test, the ranks on
// which it failed (the ranks agree on that in one collective per test, which also keeps them
// in step). A fatal failure (ASSERT_*) leaves its test early, so the other ranks could wait
// for it in a collective forever: the printer then aborts the whole job instead.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tolm::mpitest {

class RankedResultPrinter : public testing::EmptyTestEventListener {
  public:
    RankedResultPrinter(int rank, int size);

    void OnTestStart(const testing::TestInfo& test) override;
    void OnTestPartResult(const testing::TestPartResult& result) override;
    void OnTestEnd(const testing::TestInfo& test) override;
    void OnTestProgramEnd(const testing::UnitTest& unitTest) override;

  private:
    std::vector<int> failingRanks(bool failedHere) const;

    int rank_;
    int size_;
    std::vector<std::string> failedTests_;
};

}  // namespace tolm::mpitest
