// The preflight's verdict on gathered process records: which set-ups are problems.
#include <gtest/gtest.h>

#include <functional>

#include "Preflight.h"

namespace tolm {
namespace {

using Problems = std::vector<std::string>;

Properties job(bool machineBinds = true, const std::string& logs = "") {
    Properties described(R"({"launcher":"none","driver":"-mpi mpich2"})");
    described.set("logDirectory", logs);
    described.set("machineBinds", machineBinds);
    return described;
}

// A process on `host` that found everything in order; the first of its host carries the
// host's facts.
Properties process(unsigned rank, const std::string& host, bool first) {
    Properties record(R"({"bound":true,"pinnedAtStart":false,"mpiLibrary":"/lib/libmpich.so.12",
        "mpiVersion":"MPICH Version: 4.0.2","vectorization":"avx2","temporaryDirectory":"/tmp",
        "temporaryWritable":true})");
    record.set("rank", rank);
    record.set("host", host);
    record.set("role", rank == 0 ? "master" : "slave");
    record.set("lpus", std::vector<unsigned>{rank % 2});
    if (first) {
        record.set("contention", false);
        record.set("overSubscribedBy", 0u);
        record.set("physicalCores", 2u);
    }
    return record;
}

std::vector<Properties> twoHosts() {
    return {process(0, "hostA", true), process(1, "hostB", true), process(2, "hostA", false)};
}

Problems problemsOf(const std::vector<Properties>& processes, const Properties& described) {
    Problems problems;
    Preflight::format(described, processes, problems);
    return problems;
}

TEST(Preflight, EachFaultOfTheSetUpIsOneProblem) {
    struct Case {
        const char* name;
        std::function<void(std::vector<Properties>&)> spoil;
        Problems expected;
    };
    const Case cases[] = {
        {"all in order", [](auto&) {}, {}},
        {"oversubscribed",
         [](auto& all) {
             all[0].set("overSubscribedBy", 1u);
             all[0].set("physicalCores", 1u);
             all[0].set("bound", false);
             all[2].set("bound", false);
         },
         {"host hostA runs 2 processes on 1 available physical core: they are not bound"}},
        {"binding refused",
         [](auto& all) { all[1].set("bound", false); },
         {"rank 1 on host hostB could not be bound to an LPU"}},
        {"contention",
         [](auto& all) { all[1].set("contention", true); },
         {"host hostB: another job of this server holds LPUs of the host"}},
        {"temporary directory",
         [](auto& all) { all[2].set("temporaryWritable", false); },
         {"host hostA: the temporary directory /tmp is not writable"}},
        {"mixed vectorization",
         [](auto& all) { all[1].set("vectorization", "avx512f"); },
         {"the hosts have mixed vectorization capabilities"}},
        {"different MPI libraries",
         [](auto& all) { all[2].set("mpiVersion", "MPICH Version: 3.4"); },
         {"the processes run different MPI libraries"}},
    };
    for (const Case& c : cases) {
        auto all = twoHosts();
        c.spoil(all);
        EXPECT_EQ(problemsOf(all, job()), c.expected) << c.name;
    }
}

TEST(Preflight, UnboundProcessesAreNoProblemWhenTheMachineDoesNotBind) {
    auto all = twoHosts();
    all[1].set("bound", false);
    EXPECT_EQ(problemsOf(all, job(false)), Problems{});
}

TEST(Preflight, ALogDirectoryOneProcessCannotWriteIsAProblemOfItsHost) {
    auto all = twoHosts();
    for (auto& record : all)
        record.set("logWritable", record.get<unsigned>("rank") != 2);
    EXPECT_EQ(problemsOf(all, job(true, "/logs")),
              Problems{"host hostA: the log directory /logs is not writable"});
}

TEST(Preflight, HostsAreReportedInTheOrderOfTheirFirstRanks) {
    Problems problems;
    const std::string report = Preflight::format(job(), twoHosts(), problems);
    EXPECT_LT(report.find("host hostA: master and 1 slave, ranks 0, 2\n"),
              report.find("host hostB: 1 slave, rank 1\n"))
        << report;
    EXPECT_EQ(report.find("binding: the launcher"), std::string::npos);
}

}  // namespace
}  // namespace tolm
