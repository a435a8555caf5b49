#include "support/RankedResultPrinter.h"

#include <cstdio>
#include <sstream>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpitest {

namespace {

std::string fullName(const testing::TestInfo& test) {
    return std::string(test.test_suite_name()) + "." + test.name();
}

}  // namespace

RankedResultPrinter::RankedResultPrinter(int rank, int size) : rank_(rank), size_(size) {}

void RankedResultPrinter::OnTestStart(const testing::TestInfo& test) {
    if (rank_ == 0) {
        std::printf("[ RUN      ] %s\n", fullName(test).c_str());
        std::fflush(stdout);
    }
}

void RankedResultPrinter::OnTestPartResult(const testing::TestPartResult& result) {
    if (!result.failed()) {
        return;
    }
    std::ostringstream text;
    text << "[rank " << rank_ << "] " << (result.file_name() ? result.file_name() : "unknown")
         << ":" << result.line_number() << ": Failure\n"
         << result.message() << "\n";
    std::fputs(text.str().c_str(), stdout);
    std::fflush(stdout);
    if (result.fatally_failed()) {
        std::printf("[rank %d] Fatal failure: aborting the job so that no rank waits for it\n",
                    rank_);
        std::fflush(stdout);
        QMX_MPI_Abort(QMX_MPI_COMM_WORLD, 1);
    }
}

std::vector<int> RankedResultPrinter::failingRanks(bool failedHere) const {
    int failed = failedHere ? 1 : 0;
    std::vector<int> flags(static_cast<std::size_t>(size_), 0);
    QMX_MPI_Allgather(&failed, 1, QMX_MPI_INT, flags.data(), 1, QMX_MPI_INT, QMX_MPI_COMM_WORLD);
    std::vector<int> ranks;
    for (int r = 0; r < size_; ++r) {
        if (flags[static_cast<std::size_t>(r)]) {
            ranks.push_back(r);
        }
    }
    return ranks;
}

void RankedResultPrinter::OnTestEnd(const testing::TestInfo& test) {
    const std::vector<int> ranks = failingRanks(test.result()->Failed());
    if (rank_ != 0) {
        return;
    }
    const std::string name = fullName(test);
    if (ranks.empty()) {
        const char* status = test.result()->Skipped() ? "[  SKIPPED ]" : "[       OK ]";
        std::printf("%s %s (%lld ms)\n", status, name.c_str(),
                    static_cast<long long>(test.result()->elapsed_time()));
    } else {
        std::ostringstream text;
        text << name << " on rank" << (ranks.size() > 1 ? "s" : "");
        for (int r : ranks) {
            text << " " << r;
        }
        failedTests_.push_back(text.str());
        std::printf("[  FAILED  ] %s\n", text.str().c_str());
    }
    std::fflush(stdout);
}

void RankedResultPrinter::OnTestProgramEnd(const testing::UnitTest& unitTest) {
    if (rank_ != 0) {
        return;
    }
    std::printf("[==========] %d tests on %d ranks (%lld ms)\n", unitTest.test_to_run_count(),
                size_, static_cast<long long>(unitTest.elapsed_time()));
    if (failedTests_.empty()) {
        std::printf("[  PASSED  ] all tests on all ranks\n");
    }
    for (const auto& failure : failedTests_) {
        std::printf("[  FAILED  ] %s\n", failure.c_str());
    }
    std::fflush(stdout);
}

}  // namespace tolm::mpitest
