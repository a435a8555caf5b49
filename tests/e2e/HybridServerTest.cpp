// The "HybridReduce" command: a threaded reduction over a block each shared-memory group
// shares, under both MPIs' launchers, with the participants' thread binding report.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "ServerJobs.h"

namespace tolm {
namespace {

using test::Job;
using test::responses;
using test::runJob;

// 1 + 2 + ... + values
std::uint64_t sumUpTo(std::uint64_t values) {
    return values * (values + 1) / 2;
}

class HybridServer : public testing::TestWithParam<Job> {};

TEST_P(HybridServer, EveryScopeSumsTheWholeJobsValuesOnOneProcessPerGroup) {
    const Job& job = GetParam();
    const auto result = runJob(job, {},
                               "{\"command\":\"HybridReduce\",\"n\":1000}\n"
                               "{\"command\":\"HybridReduce\",\"n\":777,\"scope\":\"numa\"}\n"
                               "{\"command\":\"HybridReduce\",\"scope\":\"die\"}\n");
    EXPECT_EQ(result.exitCode, 1) << "the failed third command" << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 3u) << result.out;
    const auto ranks = static_cast<std::uint64_t>(job.ranks);
    EXPECT_EQ(answers[0].get<std::uint64_t>("sum"), sumUpTo(1000 * ranks));
    EXPECT_EQ(answers[0].get<std::string>("scope"), "host");
    EXPECT_EQ(answers[0].get<unsigned>("groups"), 1u) << "one host";
    EXPECT_EQ(answers[0].get<unsigned>("threads"), unsigned(job.ranks));
    EXPECT_EQ(answers[1].get<std::uint64_t>("sum"), sumUpTo(777 * ranks));
    EXPECT_EQ(answers[1].get<std::string>("scope"), "numa");
    EXPECT_EQ(answers[2].get<std::string>("message"), "\"scope\" must be numa, socket or host");
}

TEST_P(HybridServer, ThreadBindingIsReportedUnderTheOperationsName) {
    const auto result =
        runJob(GetParam(), {"-xthreadbindverbose"}, "{\"command\":\"HybridReduce\",\"n\":10}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("Thread binding of tolm::(anonymous namespace)::HybridReduction "
                              "(host scope):\n  rank 0: thread 0 "),
              std::string::npos)
        << result.out;
}

INSTANTIATE_TEST_SUITE_P(BothMpis, HybridServer, test::bothMpis(2, 3), test::caseName);

}  // namespace
}  // namespace tolm
