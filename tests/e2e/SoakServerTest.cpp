// A long run of the server: 10,000 commands, failing and succeeding mixed, with parallel file
// writes and reads among them, through a 4-rank job under both MPIs. Every command must get exactly one answer, in order; the job must end in
// bounded time with the server-error code; no rank's resident memory may grow with the number
// of commands.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
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

// One command of the batch and what its answer must say.
struct Step {
    enum Kind { echo, failure, quietFailure, memory, file } kind;
    int lowestFailingRank = -1;
    std::string line;
};

// Which ranks fail: their lowest is the one reported.
const std::vector<std::pair<const char*, int>> failingRanks{
    {"[2,1]", 1}, {"[3]", 3}, {"[0,3]", 0}, {"[1,2,3]", 1}, {"[3,2]", 2}};

Step stepAt(int index, const std::string& field) {
    if (index % memoryEvery == 0)
        return {Step::memory, -1, "{\"command\":\"MemoryUsage\"}"};
    if (index % fileEvery == 11 || index % fileEvery == 13) {  // places of echoes
        const char* command = index % fileEvery == 11 ? "WriteField" : "ReadField";
        return {Step::file, -1,
                std::string("{\"command\":\"") + command + "\",\"filename\":\"" + field +
                    "\",\"valuesPerRank\":" + std::to_string(valuesPerRank) + "}"};
    }
    if (index % 5 == 2) {
        const auto& [list, lowest] = failingRanks[(index / 5) % failingRanks.size()];
        return {Step::failure, lowest,
                std::string("{\"command\":\"Fail\",\"ranks\":") + list + "}"};
    }
    if (index % 5 == 4)  // chooses no rank: succeeds everywhere
        return {Step::quietFailure, -1, "{\"command\":\"Fail\",\"ranks\":[]}"};
    return {Step::echo, -1, "{\"command\":\"Echo\",\"seq\":" + std::to_string(index) + "}"};
}

// Each rank's current resident memory, from a MemoryUsage answer.
std::vector<std::int64_t> residentOf(const Properties& usage) {
    std::vector<std::int64_t> resident;
    for (const auto& process : usage.value().at("processes"))
        resident.push_back(process.at("current").at("resident").get<std::int64_t>());
    return resident;
}

// What is wrong with the answer to `step`; empty when it is right.
std::string mismatch(const Step& step, int index, const Properties& answer) {
    const bool failed = answer.has("error");
    switch (step.kind) {
        case Step::echo:
            if (!failed && answer.get<int>("seq", -1) == index)
                return {};
            return "expected the echo of " + std::to_string(index);
        case Step::quietFailure:
            return failed ? "expected success" : "";
        case Step::file:
            if (!failed && answer.get<int>("values", -1) == valuesPerRank * ranks)
                return {};
            return "expected a field of " + std::to_string(valuesPerRank * ranks) + " values";
        case Step::memory:
            if (!failed && answer.value().at("processes").size() == std::size_t(ranks))
                return {};
            return "expected the figures of " + std::to_string(ranks) + " processes";
        case Step::failure: {
            const int rank = step.lowestFailingRank;
            const std::string message = "Command failed on rank " + std::to_string(rank);
            if (failed && answer.get<std::string>("message", "") == message &&
                answer.has("Rank") == (rank != 0) && (rank == 0 || answer.get<int>("Rank") == rank))
                return {};
            return "expected \"" + message + "\"" + (rank == 0 ? " without" : " with") + " Rank";
        }
    }
    return "unknown step";
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

    std::remove(file.c_str());
    std::remove(field.c_str());
    std::remove(directory.c_str());
    const auto answers = test::responses(result.out);
    ASSERT_EQ(answers.size(), steps.size()) << result.err.substr(0, 2000);
    std::vector<std::vector<std::int64_t>> resident;  // at each MemoryUsage from the warm-up on
    std::vector<std::int64_t> first;
    for (int index = 0; index < commandCount; ++index) {
        ASSERT_EQ(mismatch(steps[index], index, answers[index]), "")
            << "answer " << index << ": " << answers[index].toString();
        if (steps[index].kind != Step::memory)
            continue;
        if (index == 0)
            first = residentOf(answers[index]);
        if (index >= warmUp)
            resident.push_back(residentOf(answers[index]));
    }
    ASSERT_GE(resident.size(), 2u);

    std::printf("%s: %d commands in %.1f s (%.0f us each)\n", test::jobName(GetParam()).c_str(),
                commandCount, seconds, seconds * 1e6 / commandCount);
    std::printf("rank  resident at start  after %d commands  at the end  growth (KiB)\n", warmUp);
    for (int rank = 0; rank < ranks; ++rank) {
        const std::int64_t settled = resident.front()[rank], last = resident.back()[rank];
        std::printf("%4d  %13lld KiB  %13lld KiB  %6lld KiB  %+8lld\n", rank,
                    static_cast<long long>(first[rank] >> 10),
                    static_cast<long long>(settled >> 10), static_cast<long long>(last >> 10),
                    static_cast<long long>((last - settled) >> 10));
        EXPECT_LE(last - settled, residentGrowthBound) << "rank " << rank;
    }
}

INSTANTIATE_TEST_SUITE_P(BothMpis, Soak, test::bothMpis(ranks, ranks), test::caseName);

}  // namespace
}  // namespace tolm
