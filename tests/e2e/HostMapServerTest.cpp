// The server's binding report and "HostMap" command: jobs on two simulated hosts (each rank in
// a UTS namespace of its own, see tests/mpi/hostmap/simulated-hosts.sh), jobs restricted by
// taskset, a host hwloc describes as one core, jobs the launcher binds, and a serial run,
// under both MPIs' launchers.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <sstream>

#include "ServerJobs.h"

namespace tolm {
namespace {

using Arguments = std::vector<std::string>;
using test::Job;

const std::string simulatedHosts = TOLM_SIMULATED_HOSTS_SCRIPT;

// `before` the launcher, `ranks` ranks each started through `perRank`, the server's arguments.
test::ChildResult runJob(Job job, const Arguments& before, int ranks, const Arguments& perRank,
                         const Arguments& server, const std::string& input = "") {
    job.ranks = ranks;
    Arguments command = test::jobCommand(job, server);
    command.insert(std::find(command.begin(), command.end(), TOLM_SERVER_PATH), perRank.begin(),
                   perRank.end());
    command.insert(command.begin(), before.begin(), before.end());
    return test::runChild(command, input, 60);
}

// One line of the binding report.
struct ReportLine {
    std::string host;
    unsigned pid = 0;
    unsigned rank = 0;
    bool bound = false;
    std::string lpus;
};

// The report's heading and process lines, in the order printed.
std::pair<std::string, std::vector<ReportLine>> report(const std::string& out) {
    static const std::regex process(
        R"(\[([^:\]]+):(\d+)\] rank (\d+) (bound to|not bound, runs on) LPUs? ([0-9,-]+): \S+)");
    std::pair<std::string, std::vector<ReportLine>> found;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (line.rfind("Process binding", 0) == 0) {
            found.first = line;
        } else if (std::regex_match(line, match, process)) {
            found.second.push_back({match[1], unsigned(std::stoul(match[2])),
                                    unsigned(std::stoul(match[3])), match[4] == "bound to",
                                    match[5]});
        }
    }
    return found;
}

Properties response(const std::string& out) {
    return test::responses(out).at(0);
}

unsigned processorsOfThisProcess() {
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof set, &set);
    return static_cast<unsigned>(CPU_COUNT(&set));
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class HostMapServer : public testing::TestWithParam<Job> {};

TEST_P(HostMapServer, FourRanksOnTwoHostsAreBoundAndReportedInRankOrder) {
    if (test::runChild({"unshare", "--uts", "true"}).exitCode != 0)
        GTEST_SKIP() << "unshare --uts is not permitted here";
    if (processorsOfThisProcess() < 2)
        GTEST_SKIP() << "needs two processors for the two processes of each host";
    const auto result = runJob(GetParam(), {simulatedHosts}, 4, {simulatedHosts, "--as-rank"},
                               {"-cpubindverbose"}, "{\"command\":\"HostMap\"}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto [heading, lines] = report(result.out);
    EXPECT_EQ(heading, "Process binding (policy bandwidth): 4 processes on 2 hosts");
    ASSERT_EQ(lines.size(), 4u) << result.out;
    for (unsigned rank = 0; rank < 4; ++rank) {
        EXPECT_EQ(lines[rank].rank, rank);
        EXPECT_EQ(lines[rank].host, rank % 2 == 0 ? "hostA" : "hostB");
        EXPECT_TRUE(lines[rank].bound) << result.out;
    }

    const Properties answer = response(result.out);
    EXPECT_EQ(answer.get<unsigned>("numberHosts"), 2u);
    EXPECT_EQ(answer.get<std::string>("policy"), "bandwidth");
    const auto& hosts = answer.value().at("hosts");
    ASSERT_EQ(hosts.size(), 2u) << result.out;
    EXPECT_EQ(hosts[0].at("host"), "hostA");
    EXPECT_EQ(hosts[0].at("ranks"), (std::vector<unsigned>{0, 2}));
    EXPECT_EQ(hosts[0].at("pids"), (std::vector<unsigned>{lines[0].pid, lines[2].pid}));
    EXPECT_EQ(hosts[1].at("host"), "hostB");
    EXPECT_EQ(hosts[1].at("ranks"), (std::vector<unsigned>{1, 3}));
    EXPECT_EQ(hosts[1].at("masterOnHost"), false);
    const auto& processes = answer.value().at("processes");
    ASSERT_EQ(processes.size(), 4u);
    for (unsigned rank = 0; rank < 4; ++rank) {
        EXPECT_EQ(processes[rank].at("pid"), lines[rank].pid);
        EXPECT_EQ(processes[rank].at("lpus"),
                  std::vector<unsigned>{unsigned(std::stoul(lines[rank].lpus))});
    }
}

// The host's LPUs are those the topology allows, whatever the launcher let the ranks use.
TEST_P(HostMapServer, RanksStartedOnOneLpuAreBoundApartAndTheReportSaysSo) {
    if (processorsOfThisProcess() < 2)
        GTEST_SKIP() << "needs two processors for the two processes";
    const auto result = runJob(GetParam(), {"taskset", "-c", "0"}, 2, {}, {"-cpubindverbose"});
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto [heading, lines] = report(result.out);
    ASSERT_EQ(lines.size(), 2u) << result.out;
    EXPECT_TRUE(lines[0].bound && lines[1].bound) << result.out;
    EXPECT_NE(lines[0].lpus, lines[1].lpus);
    EXPECT_NE(result.out.find(heading + "\nThe launcher had pinned every rank before start-up\n"),
              std::string::npos)
        << result.out;
}

// Sets an environment variable for the life of the object (the job's processes inherit it).
class EnvironmentSetting {
  public:
    EnvironmentSetting(const char* name, const std::string& value) : _name(name) {
        setenv(name, value.c_str(), 1);
    }
    ~EnvironmentSetting() { unsetenv(_name); }

  private:
    const char* _name;
};

TEST_P(HostMapServer, AnOversubscribedHostIsLeftUnboundWithOneWarning) {
    // hwloc describes this machine as one of a single core.
    const EnvironmentSetting xml("HWLOC_XMLFILE", TOLM_TOPOLOGY_DATA_DIR "/single-core.xml");
    const EnvironmentSetting thisSystem("HWLOC_THISSYSTEM", "1");
    const auto result = runJob(GetParam(), {}, 2, {}, {"-cpubindverbose"});
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto [heading, lines] = report(result.out);
    ASSERT_EQ(lines.size(), 2u) << result.out;
    EXPECT_FALSE(lines[0].bound || lines[1].bound) << result.out;
    EXPECT_EQ(occurrences(result.err, "Warning: Host " + lines[0].host +
                                          " runs 2 processes on 1 available physical core: "
                                          "the processes are not bound to LPUs\n"),
              1u)
        << result.err;
}

INSTANTIATE_TEST_SUITE_P(BothMpis, HostMapServer,
                         test::bothMpis(0, 0),  // each case sets its number of ranks
                         [](const testing::TestParamInfo<Job>& info) {
                             return std::string(info.param.driver);
                         });

// In a host of its own, so that no other server of the test run contends for its LPU.
TEST(HostMapSerialServer, ReportsTheOneProcessAndItsHost) {
    if (test::runChild({"unshare", "--uts", "true"}).exitCode != 0)
        GTEST_SKIP() << "unshare --uts is not permitted here";
    const auto result = test::runChild({"unshare", "--uts", TOLM_SERVER_PATH, "-s", "-cpubind",
                                        "latency", "-cpubindextendedverbosity"},
                                       "{\"command\":\"HostMap\"}\n", 30);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto [heading, lines] = report(result.out);
    EXPECT_EQ(heading, "Process binding (policy latency): 1 process on 1 host");
    ASSERT_EQ(lines.size(), 1u) << result.out;
    EXPECT_TRUE(lines[0].bound);
    EXPECT_NE(result.out.find("\nHost " + lines[0].host + ":\n  "), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("    main thread on LPU " + lines[0].lpus + "; "), std::string::npos)
        << result.out;
    const Properties answer = response(result.out);
    EXPECT_EQ(answer.value().at("hosts").at(0).at("ranks"), std::vector<unsigned>{0});
    EXPECT_EQ(answer.value().at("processes").at(0).at("pid"), lines[0].pid);
}

}  // namespace
}  // namespace tolm
