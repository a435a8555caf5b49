// A long run of the server: 10,000 commands, failing and succeeding mixed, with parallel file
// writes and reads among them, through a 4-rank job under both MPIs. Every command must get exactly
// one answer, in order; the job must end in bounded time with the server-error code; no rank's
// resident memory may grow with the number of commands.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "ServerJobs.h"
#include "support/ChildRun.h"

namespace tolm {
namespace {

using test::Job;

constexpr int commandCount = 10000;
constexpr int ranks = 4;
constexpr int memoryEvery = 250;  // a MemoryUsage command every so many
constexpr int fileEvery = 50;     // a WriteField and a ReadField of a small field every so many
constexpr int valuesPerRank = 16;
// The first memory figures are taken once every path has run a few hundred times: MPI's free
// lists, the allocator's arenas and the monitor settle in that time.
constexpr int warmUp = 500;
// Allowed growth of one rank's resident memory from the sample after the warm-up to the last
// (9,250 commands). The allocator and MPI grow in steps of a few pages to a few hundred KiB;
// the growth measured in that window was at most 56 KiB. A leak of more than about 110 bytes
// per command (less than one answer record), or 280 bytes per failing command, exceeds it.
constexpr std::int64_t residentGrowthBound = 1 << 20;

// One command of the batch and what its answer must hold: the error `message` and "Rank" (-1
// for none) of a failure, or on success (empty message) `field` with `value`, if any.
struct Step {
    std::string line;
    std::string message{};
    int rank = -1;
    const char* field = nullptr;
    int value = 0;
};

// Which ranks fail: their lowest is the one reported, with a "Rank" unless it is the master.
const std::vector<std::pair<const char*, int>> failingRanks{
    {"[2,1]", 1}, {"[3]", 3}, {"[0,3]", 0}, {"[1,2,3]", 1}, {"[3,2]", 2}};

Step stepAt(int index, const std::string& field) {
    if (index % memoryEvery == 0)
        return {"{\"command\":\"MemoryUsage\"}"};
    if (index % fileEvery == 11 || index % fileEvery == 13) {  // places of echoes
        const char* command = index % fileEvery == 11 ? "WriteField" : "ReadField";
        return {std::string("{\"command\":\"") + command + "\",\"filename\":\"" + field +
                    "\",\"valuesPerRank\":" + std::to_string(valuesPerRank) + "}",
                "", -1, "values", valuesPerRank * ranks};
    }
    if (index % 5 == 2) {
        const auto& [list, lowest] = failingRanks[(index / 5) % failingRanks.size()];
        return {std::string("{\"command\":\"Fail\",\"ranks\":") + list + "}",
                "Command failed on rank " + std::to_string(lowest), lowest == 0 ? -1 : lowest};
    }
    if (index % 5 == 4)  // chooses no rank: succeeds everywhere
        return {"{\"command\":\"Fail\",\"ranks\":[]}"};
    return {"{\"command\":\"Echo\",\"seq\":" + std::to_string(index) + "}", "", -1, "seq", index};
}

// Each rank's current resident memory, from a MemoryUsage answer.
std::vector<std::int64_t> residentOf(const Properties& usage) {
    std::vector<std::int64_t> resident;
    for (const auto& process : usage.value().at("processes"))
        resident.push_back(process.at("current").at("resident").get<std::int64_t>());
    return resident;
}

// What is wrong with the answer to `step`; empty when it is right.
std::string mismatch(const Step& step, const Properties& answer) {
    if (answer.has("error") == step.message.empty() ||
        answer.get<std::string>("message", "") != step.message ||
        answer.get<int>("Rank", -1) != step.rank)
        return "expected \"" + step.message + "\" and Rank " + std::to_string(step.rank);
    if (step.field && answer.get<int>(step.field, -1) != step.value)
        return std::string("expected ") + step.field + " " + std::to_string(step.value);
    return {};
}

class Soak : public testing::TestWithParam<Job> {};

TEST_P(Soak, EveryCommandIsAnsweredOnceInOrderAndMemoryStaysFlat) {
    const std::string directory = test::makeTemporaryDirectory(), file = directory + "/soak.jsonl";
    const std::string field = directory + "/field.bin";
    std::vector<Step> steps;
    std::string batch;
    for (int index = 0; index < commandCount; ++index) {
        steps.push_back(stepAt(index, field));
        batch += steps.back().line + '\n';
    }
    // A batch file: MPICH's launcher ends the job when standard input arrives faster than the
    // master reads it.
    test::writeTextFile(file, batch);
    const auto started = std::chrono::steady_clock::now();
    const auto result = test::runChild(
        test::jobCommand(GetParam(), {"-memorymonitor", "0.02", "-batch", file}), "", 540);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_EQ(result.exitCode, 1) << "a failed command makes the job's status a server error\n"
                                  << result.err.substr(0, 2000);

    std::filesystem::remove_all(directory);
    const auto answers = test::responses(result.out);
    ASSERT_EQ(answers.size(), steps.size()) << result.err.substr(0, 2000);
    std::vector<std::vector<std::int64_t>> resident;  // at each MemoryUsage from the warm-up on
    for (int index = 0; index < commandCount; ++index) {
        ASSERT_EQ(mismatch(steps[index], answers[index]), "")
            << "answer " << index << ": " << answers[index].toString();
        if (index % memoryEvery != 0)
            continue;
        ASSERT_EQ(residentOf(answers[index]).size(), std::size_t(ranks)) << "answer " << index;
        if (index >= warmUp)
            resident.push_back(residentOf(answers[index]));
    }
    ASSERT_GE(resident.size(), 2u);

    std::printf("%s: %d commands in %.1f s (%.0f us each)\n", test::jobName(GetParam()).c_str(),
                commandCount, seconds, seconds * 1e6 / commandCount);
    for (int rank = 0; rank < ranks; ++rank) {
        const std::int64_t settled = resident.front()[rank], last = resident.back()[rank];
        std::printf("rank %d: resident %lld KiB after %d commands, %lld KiB at the end\n", rank,
                    static_cast<long long>(settled >> 10), warmUp,
                    static_cast<long long>(last >> 10));
        EXPECT_LE(last - settled, residentGrowthBound) << "rank " << rank;
    }
}

INSTANTIATE_TEST_SUITE_P(BothMpis, Soak, test::bothMpis(ranks, ranks), test::caseName);

}  // namespace
}  // namespace tolm
