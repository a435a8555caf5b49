#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "machine/topology/CpuTopology.h"
#include "machine/topology/ProcessAffinitySummary.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using Summary = ProcessAffinitySummary;
using test::loadFixture;
using test::maskOf;
using test::numbers;

// One character per hardware thread, cores by socket; hardware threads are found by their
// processor numbers (in interleaved-smt.xml processors 0 and 4 are the threads of core 0).
TEST(BindingPicture, OneCharacterPerHardwareThreadCoresBySocket) {
    const std::tuple<const char*, std::vector<unsigned>, const char*> cases[] = {
        {"two-sockets.xml", {0, 1}, "[BB/../../..][../../../..]"},
        {"two-sockets.xml", {9, 15}, "[../../../..][.B/../../.B]"},
        {"two-sockets.xml", numbers(0, 15), "[BB/BB/BB/BB][BB/BB/BB/BB]"},
        {"smt-off.xml", {5}, "[./././.][./B/./.]"},
        {"interleaved-smt.xml", {0, 4}, "[BB/..][../..]"},
        {"interleaved-smt.xml", {1}, "[../B.][../..]"},
        {"damaged-no-pus.xml", {0, 5}, "[0x21]"},  // without LPU information: the mask
    };
    for (const auto& [fixture, lpus, picture] : cases) {
        test::WarningCapture log;  // the damaged fixture warns as it loads
        EXPECT_EQ(Summary::picture(loadFixture(fixture), maskOf(lpus)), picture) << fixture;
    }
}

TEST(BindingReport, LpuListsAreRanges) {
    EXPECT_EQ(Summary::lpuList(AffinityMask()), "none");
    EXPECT_EQ(Summary::lpuList(maskOf({3})), "3");
    EXPECT_EQ(Summary::lpuList(maskOf({0, 1, 2, 5, 7, 8, 40})), "0-2,5,7-8,40");
    EXPECT_EQ(Summary::namedLpus({6}), "LPU 6");
    EXPECT_EQ(Summary::namedLpus({0, 1}), "LPUs 0-1");
}

Properties record(unsigned rank, const std::string& host, std::vector<unsigned> lpus, bool bound,
                  const std::string& picture) {
    Properties process;
    process.set("rank", rank);
    process.set("host", host);
    process.set("pid", 1000 + rank);
    process.set("hostRank", rank / 2);
    process.set("lpus", lpus);
    process.set("bound", bound);
    process.set("picture", picture);
    process.set("mainThreadLpus", lpus);
    process.set("lastLpus", std::vector<unsigned>{lpus.front()});
    process.set("coverage", "{0" + std::to_string(lpus.front()) + "}");
    return process;
}

Properties system(const std::string& host) {
    Properties information;
    information.set("host", host);
    information.set("topology", "  S00 : [00 01] (" + host + ")\n");
    return information;
}

// Ranks 0 and 2 on hostA, 1 and 3 on hostB; hostB oversubscribed.
std::vector<Properties> twoHostRecords() {
    std::vector<Properties> records = {
        record(0, "hostA", {0}, true, "[B/.]"), record(1, "hostB", {0, 1}, false, "[B/B]"),
        record(2, "hostA", {1}, true, "[./B]"), record(3, "hostB", {0, 1}, false, "[B/B]")};
    records[0].setChild(Summary::systemKey, system("hostA"));
    records[1].setChild(Summary::systemKey, system("hostB"));
    return records;
}

TEST(BindingReport, OneLinePerProcessInRankOrder) {
    const Properties collected = Summary::collect(twoHostRecords());
    EXPECT_EQ(Summary::format(collected, 2, "bandwidth", false),
              "Process binding (policy bandwidth): 4 processes on 2 hosts\n"
              "[hostA:1000] rank 0 bound to LPU 0: [B/.]\n"
              "[hostB:1001] rank 1 not bound, runs on LPUs 0-1: [B/B]\n"
              "[hostA:1002] rank 2 bound to LPU 1: [./B]\n"
              "[hostB:1003] rank 3 not bound, runs on LPUs 0-1: [B/B]\n");
    Properties unknown = record(0, "solo", {0}, false, "[]");
    unknown.set("lpus", std::vector<unsigned>{});
    EXPECT_EQ(Summary::format(Summary::collect({unknown}), 1, "leastload", false),
              "Process binding (policy leastload): 1 process on 1 host\n"
              "[solo:1000] rank 0 affinity unknown\n");
}

TEST(BindingReport, ExtendedShowsEachHostOnceAndEveryMainThread) {
    const std::vector<Properties> records = twoHostRecords();
    const Properties collected = Summary::collect({records[0], records[1], records[2]});
    EXPECT_EQ(Summary::format(collected, 2, "latency", true),
              "Process binding (policy latency): 3 processes on 2 hosts\n"
              "Host hostA:\n"
              "  S00 : [00 01] (hostA)\n"
              "[hostA:1000] rank 0 bound to LPU 0: [B/.]\n"
              "    main thread on LPU 0; last ran on LPU 0; covers {00}\n"
              "Host hostB:\n"
              "  S00 : [00 01] (hostB)\n"
              "[hostB:1001] rank 1 not bound, runs on LPUs 0-1: [B/B]\n"
              "    main thread on LPUs 0-1; last ran on LPU 0; covers {00}\n"
              "[hostA:1002] rank 2 bound to LPU 1: [./B]\n"
              "    main thread on LPU 1; last ran on LPU 1; covers {01}\n");
}

TEST(BindingReport, CollectTakesHostInformationOutOfTheRecords) {
    const Properties collected = Summary::collect(twoHostRecords());
    const auto& hosts = collected.value().at("hosts");
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(hosts[0].at("host"), "hostA");
    EXPECT_EQ(hosts[1].at("host"), "hostB");
    const auto& processes = collected.value().at("processes");
    ASSERT_EQ(processes.size(), 4u);
    for (unsigned rank = 0; rank < 4; ++rank) {
        EXPECT_EQ(processes[rank].at("rank"), rank);
        EXPECT_FALSE(processes[rank].contains(Summary::systemKey));
    }
}

}  // namespace
}  // namespace tolm
