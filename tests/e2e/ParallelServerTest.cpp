// The server as an MPI job under both MPIs' launchers: its start, its own options ("-help" and
// "-version" answer before MPI starts, arguments nobody took are named once, "-check" reports
// the job's set-up per host instead of running a batch), its failures at start-up, its binding
// report, and the commands of the subsystems that only a job exercises (hybrid reduction,
// memory monitor, profile). Which request wins is ServerOptionsTest's, the check's verdicts
// PreflightTest's, which process goes where the host map's (tests/mpi/hostmap).
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <regex>

#include "ServerJobs.h"

namespace tolm {
namespace {

using Arguments = std::vector<std::string>;
using test::Job;
using test::responses;
using test::runJob;

class ParallelServer : public testing::TestWithParam<Job> {};

// "-mpi auto" takes the driver of the launcher that started the job.
TEST_P(ParallelServer, RunsTheBatchUnderTheLaunchersDriverAndNamesUnusedOptionsOnce) {
    Job job = GetParam();
    job.driver = "auto";
    const auto result = runJob(job, {"-bogus", "3", "-nothreads", "-x"},
                               "{\"command\":\"MachineInfo\"}\n{\"command\":\"HostMap\"}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out;
    EXPECT_EQ(answers[0].get<std::string>("role"), "Master");
    EXPECT_EQ(answers[0].get<int>("processes"), job.ranks);
    EXPECT_EQ(answers[0].get<std::string>("machineConfig"), "Np=" + std::to_string(job.ranks));
    EXPECT_EQ(answers[0].get<std::string>("mpiDistribution"), job.distribution);
    EXPECT_EQ(answers[1].get<unsigned>("numberHosts"), 1u);
    EXPECT_EQ(answers[1].value().at("processes").size(), std::size_t(job.ranks));
    EXPECT_EQ(test::occurrences(result.err, "Warning: unused options: -bogus 3 -x\n"), 1u)
        << result.err;
    EXPECT_EQ(test::occurrences(result.err, "unused options"), 1u) << result.err;
}

// Every rank stops at the failure, and the launcher hands on the code the master gave.
TEST_P(ParallelServer, StartUpFailuresEndTheJobWithTheirCode) {
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    } cases[] = {
        {{"-check", "-tmpdir", "/nonexistent"}, 2, "Error: -tmpdir /nonexistent is not a writable"},
        {{"-batch", "/nonexistent/batch.jsonl"},
         4,
         "Error: Cannot open batch file /nonexistent/batch.jsonl: No such file or directory\n"},
    };
    for (const auto& [arguments, exitCode, message] : cases) {
        const auto result = runJob(GetParam(), arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
        EXPECT_EQ(result.out.find("All is well."), std::string::npos) << result.out;
    }
}

INSTANTIATE_TEST_SUITE_P(BothMpis, ParallelServer, test::bothMpis(4, 1), test::caseName);

// At one rank: the answers come before MPI starts.
class ServerOptionsUnderMpi : public testing::TestWithParam<Job> {};

TEST_P(ServerOptionsUnderMpi, HelpAndVersionAnswerWithoutStartingMpi) {
    const std::string version = R"(tolm-server [0-9]+\.[0-9]+\.[0-9]+\nMPI drivers:\n)"
                                R"(  -mpi platform \((Open MPI|MPICH) [0-9.]+\)\n)"
                                R"(  -mpi openmpi4 \(Open MPI [0-9.]+\)\n)"
                                R"(  -mpi mpich2 \(MPICH [0-9.]+\)\n)";
    const std::pair<Arguments, std::string> cases[] = {
        {{"-help"},
         R"(Usage: tolm-server -s \[options\][\s\S]*\n  -check [\s\S]*\n  HostMap [\s\S]*)"},
        {{"-version"}, version},
    };
    for (const auto& [arguments, expected] : cases) {
        const auto result = test::runJob(GetParam(), arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments[0] << result.err;
        EXPECT_TRUE(std::regex_match(result.out, std::regex(expected))) << result.out;
        EXPECT_EQ(result.err, "") << arguments[0];
    }
}

TEST_P(ServerOptionsUnderMpi, CheckReportsEveryHostAndRunsNoBatch) {
    if (!test::unshareAllowed())
        GTEST_SKIP() << "unshare --uts is not permitted here";
    const Job job = GetParam();
    const bool openMpi = std::string(job.driver) == "openmpi4";
    const auto result =
        test::runOnSimulatedHosts(job, 4, {"-check", "-batch", "/nonexistent.jsonl"});
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const std::string library = openMpi ? R"(/\S+/libmpi\.so\S*, Open MPI v[0-9.]+\S*.*)"
                                        : R"(/\S+/libmpich\.so\S*, MPICH Version: [0-9.]+)";
    const std::string launcher = openMpi ? R"(mpirun \(Open MPI\))" : R"(mpiexec \(Hydra\))";
    const std::string driver = std::string(job.driver) + " \\(" +
                               (openMpi ? "TolmOpenMpi4" : "TolmMpich2Ch3") + ", built against " +
                               job.distribution + " [0-9.]+\\)";
    const std::string expected =
        "Preflight of 4 processes on 2 hosts\nlauncher: " + launcher + "\ndriver: -mpi " + driver +
        "\nhost hostA: master and 1 slave, ranks 0, 2\n  MPI library: " + library + R"(
  vectorization: \S+
  rank 0: bound to LPU [01]
  rank 2: bound to LPU [01]
  contention: none
  temporary directory: \S+ \(writable\)
  log directory: none \(slaves print to the launcher's console\)
host hostB: 2 slaves, ranks 1, 3
  MPI library: )" +
        library + "\n[\\s\\S]*All is well.\n";
    EXPECT_TRUE(std::regex_match(result.out, std::regex(expected))) << result.out;
    EXPECT_EQ(result.err.find("mixed vectorization"), std::string::npos) << result.err;
}

INSTANTIATE_TEST_SUITE_P(BothMpis, ServerOptionsUnderMpi, test::bothMpis(1, 1), test::caseName);

class ServerJob : public testing::TestWithParam<Job> {};

// Two ranks on a host hwloc describes as one core: left unbound, with one warning. Two ranks
// started by taskset on one LPU: the host offers the LPUs its topology allows, so they are
// bound (apart: the host map's test under taskset), and the report says that the launcher had
// pinned them. The report over several hosts is MultiHostServerTest's.
TEST_P(ServerJob, TheBindingReportSaysWhatTheLauncherAndTheHostAllowed) {
    const std::string oversubscribed =
        " runs 2 processes on 1 available physical core: the processes are not bound to LPUs\n";
    const struct {
        std::vector<std::string> launchedBy;
        const char* topology;  // for hwloc, instead of this machine's
        bool bound;
        std::string out;
        std::size_t warnings;  // of `oversubscribed`
    } cases[] = {
        {{},
         TOLM_TOPOLOGY_DATA_DIR "/single-core.xml",
         false,
         "Process binding (policy bandwidth): 2 processes on 1 host\n",
         1},
        {{"taskset", "-c", "0"},
         nullptr,
         true,
         "Process binding (policy bandwidth): 2 processes on 1 host\n"
         "The launcher had pinned every rank before start-up\n",
         0},
    };
    for (const auto& [launchedBy, topology, bound, out, warnings] : cases) {
        SCOPED_TRACE(topology ? topology : launchedBy.front());
        if (bound && std::stoi(test::runChild({"nproc"}).out) < 2)  // this process's processors
            GTEST_SKIP() << "needs two processors for the two processes";
        if (topology)
            ::setenv("HWLOC_XMLFILE", topology, 1);
        ::setenv("HWLOC_THISSYSTEM", "1", 1);  // as this machine's topology already is
        Job job = GetParam();
        job.ranks = 2;
        std::vector<std::string> command = test::jobCommand(job, {"-cpubindverbose"});
        command.insert(command.begin(), launchedBy.begin(), launchedBy.end());
        const auto result = test::runChild(command, "", 60);
        ::unsetenv("HWLOC_XMLFILE");
        ::unsetenv("HWLOC_THISSYSTEM");
        ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
        const auto lines = test::reportedBindings(result.out);
        ASSERT_EQ(lines.size(), 2u) << result.out;
        for (const auto& [rank, line] : lines)
            EXPECT_EQ(line.binding.starts_with("bound to LPU "), bound) << result.out;
        EXPECT_EQ(test::occurrences(result.out, out), 1u) << result.out;
        EXPECT_EQ(
            test::occurrences(result.err, "Warning: Host " + lines.at(0).host + oversubscribed),
            warnings)
            << result.err;
    }
}

// 1 + 2 + ... + values
std::uint64_t sumUpTo(std::uint64_t values) {
    return values * (values + 1) / 2;
}

// A threaded reduction over a block each shared-memory group shares, with the participants'
// thread binding report on standard output.
TEST_P(ServerJob, HybridReduceSumsTheWholeJobsValuesInEveryScope) {
    const Job& job = GetParam();
    const auto result = runJob(job, {"-xthreadbindverbose"},
                               "{\"command\":\"HybridReduce\",\"n\":1000}\n"
                               "{\"command\":\"HybridReduce\",\"n\":777,\"scope\":\"numa\"}\n"
                               "{\"command\":\"HybridReduce\",\"scope\":\"die\"}\n");
    EXPECT_EQ(result.exitCode, 1) << "the failed third command" << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 3u) << result.out;
    const auto ranks = static_cast<std::uint64_t>(job.ranks);
    EXPECT_EQ(answers[0].get<std::uint64_t>("sum"), sumUpTo(1000 * ranks));
    EXPECT_EQ(answers[0].get<std::string>("scope"), "host");
    EXPECT_EQ(answers[1].get<std::uint64_t>("sum"), sumUpTo(777 * ranks));
    EXPECT_EQ(answers[1].get<std::string>("scope"), "numa");
    EXPECT_EQ(answers[2].get<std::string>("message"), "\"scope\" must be numa, socket or host");
    EXPECT_NE(result.out.find("Thread binding of tolm::(anonymous namespace)::HybridReduction "
                              "(host scope):\n  rank 0: thread 0 "),
              std::string::npos)
        << result.out;
}

// "-memorymonitor": MemoryUsage reports every rank's figures (which are the monitor's, tested
// under MPI), and a recording's history is exported. "-time": Profile gathers every rank's
// commands and communication, and the master prints the profile on standard error at the end
// of the job. "-yieldwait": the processes wait yielding, on any host.
TEST_P(ServerJob, TheMonitorsReportEveryRank) {
    const Job& job = GetParam();
    const std::string history = "/tmp/tolm-memory-" + std::to_string(::getpid()) + "-" +
                                std::to_string(job.ranks) + job.driver + ".csv";
    const auto result = runJob(job, {"-memorymonitor", "0.005", "-time", "-yieldwait"},
                               "{\"command\":\"MachineInfo\"}\n"
                               "{\"command\":\"MemoryUsage\"}\n"
                               "{\"command\":\"StartMemoryRecording\"}\n"
                               "{\"command\":\"Solve\",\"n\":128,\"iterations\":100}\n"
                               // The solve can end within a sampling period.
                               "{\"command\":\"Sleep\",\"seconds\":0.05}\n"
                               "{\"command\":\"StopMemoryRecording\"}\n"
                               "{\"command\":\"ExportMemoryHistory\",\"filename\":\"" +
                                   history + "\"}\n{\"command\":\"Profile\"}\n");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 8u) << result.out;
    EXPECT_TRUE(answers[0].getChild("settings").get<bool>("yieldingWaits"));

    const auto processes = answers[1].value()["processes"];
    ASSERT_EQ(processes.size(), std::size_t(job.ranks)) << answers[1].toString();
    for (int rank = 0; rank < job.ranks; ++rank)
        EXPECT_EQ(processes[rank]["rank"], rank);
    EXPECT_TRUE(answers[2].get<bool>("recording"));
    EXPECT_FALSE(answers[5].get<bool>("recording"));
    EXPECT_GT(answers[5].get<double>("time"), 0.0) << "the recording's length";
    EXPECT_EQ(answers[6].get<std::string>("filename"), history);
    const std::string exported = test::readTextFile(history);
    EXPECT_GE(std::count(exported.begin(), exported.end(), '\n'), 2) << "no sample exported";
    std::remove(history.c_str());

    const Properties& profile = answers[7];
    EXPECT_EQ(profile.get<int>("processes"), job.ranks);
    EXPECT_EQ(profile.value().at("commands").at("MachineInfo").at("count").get<int>(), 1);
    EXPECT_EQ(profile.value().at("communicationSeconds").size(), std::size_t(job.ranks));
    EXPECT_NE(
        result.err.find("Profile of the job over " + std::to_string(job.ranks) + " processes"),
        std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("\nProfile "), std::string::npos) << "the Profile command's row";
}

INSTANTIATE_TEST_SUITE_P(BothMpis, ServerJob, test::bothMpis(2, 3), test::caseName);

}  // namespace
}  // namespace tolm
