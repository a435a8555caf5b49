// The server as a cluster's users run it, through the private Slurm cluster of
// slurm-cluster.sh: srun's direct launch under each MPI's process-management plugin, mpirun
// inside an allocation, batch jobs, the binding within the CPUs Slurm gives the tasks, a
// failing rank's exit code as Slurm records it, and scancel.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "ServerJobs.h"
#include "support/ChildRun.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

using Arguments = std::vector<std::string>;

// One MPI under srun: its driver and the plugin that gives its ranks their process
// management interface.
struct DirectLaunch {
    const char* driver;
    const char* plugin;
};

void PrintTo(const DirectLaunch& launch, std::ostream* out) {
    *out << launch.driver << " through --mpi=" << launch.plugin;
}

const DirectLaunch openMpiDirect{"openmpi4", "pmix"};
const DirectLaunch mpichDirect{"mpich2", "pmi2"};

// srun with `options`, starting the server under `launch` with `arguments`. The server picks
// its driver from srun's environment ("-mpi auto"): a wrong pick would refuse to start.
Arguments srun(const DirectLaunch& launch, const Arguments& options, const Arguments& arguments) {
    Arguments command{"srun", std::string("--mpi=") + launch.plugin};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), {TOLM_SERVER_PATH, "-mpi", "auto"});
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

// True once `condition` holds, asked every 100 ms for at most `seconds`.
template <typename Condition>
bool eventually(Condition condition, int seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
}

bool running(unsigned pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string ignored, state;
    return stat >> ignored >> ignored >> state && state != "Z";
}

const std::string hostMap = "{\"command\":\"HostMap\"}\n";

class Slurm : public testing::Test {
  protected:
    void SetUp() override {
        _state = test::readKeyValueFile(TOLM_SLURM_STATE);
        if (_state.empty())
            GTEST_SKIP() << "no Slurm cluster: " TOLM_SLURM_STATE " is missing (run through ctest)";
        if (_state.count("skip"))
            GTEST_SKIP() << "no Slurm cluster: " << _state["skip"];
        ASSERT_EQ(_state.count("error"), 0u) << "Slurm cluster failed: " << _state["error"];
        ::setenv("SLURM_CONF", _state["conf"].c_str(), 1);
        // Open MPI's mpirun refuses root without its settings.
        for (const auto& setting : StringHelper::split(test::openMpi.environment, ' '))
            ::putenv(::strdup(setting.c_str()));
        // Under srun, unlike under mpirun --oversubscribe, Open MPI's ranks do not know they
        // share a CPU: without yielding, four of them polling on one CPU take seconds a step.
        ::setenv("OMPI_MCA_mpi_yield_when_idle", "1", 1);
        _dir = test::makeTemporaryDirectory();
    }

    void TearDown() override {
        if (!_dir.empty())
            std::filesystem::remove_all(_dir);
    }

    unsigned cpus() const { return static_cast<unsigned>(std::stoul(_state.at("cpus"))); }

    // Submits a batch script that runs `step` with `input` on its standard input; the job's
    // output goes to job-<id>.out in the test's directory. The job's id is in `out`.
    test::ChildResult submit(const Arguments& step, const std::string& input) {
        test::writeTextFile(_dir + "/input.jsonl", input);
        std::string script = "#!/bin/sh\n#SBATCH --ntasks=4\n#SBATCH --overcommit\n";
        for (const auto& word : step)
            script += word + " ";
        script += "< " + _dir + "/input.jsonl\n";
        test::writeTextFile(_dir + "/job.sh", script);
        auto submitted = test::runChild(
            {"sbatch", "--parsable", "--output=" + _dir + "/job-%j.out", _dir + "/job.sh"});
        submitted.out = submitted.out.substr(0, submitted.out.find('\n'));
        return submitted;
    }

    std::string jobOutput(const std::string& id) const {
        return test::readTextFile(_dir + "/job-" + id + ".out");
    }

    // The controller's record of job `id`: "JobState", "ExitCode" (status:signal) and the rest.
    static std::map<std::string, std::string> jobRecord(const std::string& id) {
        std::map<std::string, std::string> record;
        const auto shown = test::runChild({"scontrol", "--oneliner", "show", "job", id});
        for (const auto& field : StringHelper::split(shown.out, ' ')) {
            const auto equals = field.find('=');
            if (equals != std::string::npos)
                record[field.substr(0, equals)] = field.substr(equals + 1);
        }
        return record;
    }

    // The record of job `id` once it has ended (sbatch --wait asks only every few seconds).
    static std::map<std::string, std::string> endedJob(const std::string& id) {
        static const std::set<std::string> active{"PENDING", "CONFIGURING", "RUNNING",
                                                  "COMPLETING"};
        std::map<std::string, std::string> record;
        const bool ended =
            eventually([&] { return !active.count((record = jobRecord(id))["JobState"]); }, 90);
        EXPECT_TRUE(ended) << "job " << id << " still " << record["JobState"];
        return record;
    }

    // The server processes of job `id`, as the node's process tracking knows them.
    static std::vector<unsigned> serverPids(const std::string& id) {
        const auto listed = test::runChild({"scontrol", "listpids", id});
        std::vector<unsigned> pids;
        std::istringstream lines(listed.out);
        std::string line;
        std::getline(lines, line);  // the heading
        for (unsigned pid; lines >> pid && std::getline(lines, line);) {
            const std::string name = test::readTextFile("/proc/" + std::to_string(pid) + "/comm");
            if (name == "tolm-server\n")
                pids.push_back(pid);
        }
        return pids;
    }

    std::map<std::string, std::string> _state;
    std::string _dir;
};

class SlurmDirectLaunch : public Slurm, public testing::WithParamInterface<DirectLaunch> {};

// --overcommit: four ranks on a job of one CPU, whatever the node has.
TEST_P(SlurmDirectLaunch, FourRanksFormOneJobOnTheCpuSlurmGaveIt) {
    const auto result = test::runChild(
        srun(GetParam(), {"--ntasks=4", "--overcommit"}, {"-cpubindverbose"}), hostMap, 90);
    std::printf("%s%s", result.out.c_str(), result.err.c_str());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto answers = test::responses(result.out);
    ASSERT_EQ(answers.size(), 1u) << result.out << result.err;
    const auto& hosts = answers[0].value().at("hosts");
    ASSERT_EQ(hosts.size(), 1u) << answers[0].toString();
    EXPECT_EQ(hosts[0].at("ranks"), (std::vector<unsigned>{0, 1, 2, 3}))
        << "one job, not four single processes";
    EXPECT_NE(result.out.find("The launcher had pinned every rank before start-up"),
              std::string::npos)
        << "the binding report names Slurm's binding: " << result.out;
}

INSTANTIATE_TEST_SUITE_P(BothMpis, SlurmDirectLaunch, testing::Values(openMpiDirect, mpichDirect),
                         [](const testing::TestParamInfo<DirectLaunch>& info) {
                             return std::string(info.param.driver);
                         });

// The LPU of each rank in the binding report, and whether the report calls it bound.
std::map<unsigned, std::string> reportedLpus(const std::string& out) {
    static const std::regex line(R"(\] rank (\d+) (bound to LPU \d+|not bound[^:]*):)");
    std::map<unsigned, std::string> lpus;
    for (std::sregex_iterator match(out.begin(), out.end(), line), end; match != end; ++match)
        lpus[std::stoul((*match)[1])] = (*match)[2];
    return lpus;
}

TEST_F(Slurm, TheBindingStaysWithinTheCpusOfEachTask) {
    if (cpus() < 2)
        GTEST_SKIP() << "the node has one CPU";
    const std::string last = std::to_string(cpus() - 1);
    // Slurm gives the one task every CPU and binds it to the last: the machine binds over the
    // LPUs the task may use (its allowed set), and its report says that Slurm had pinned it.
    auto result = test::runChild(srun(openMpiDirect,
                                      {"--ntasks=1", "--cpus-per-task=" + std::to_string(cpus()),
                                       "--cpu-bind=map_cpu:" + last},
                                      {"-cpubindverbose"}),
                                 "", 60);
    std::printf("%s", result.out.c_str());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("The launcher had pinned every rank before start-up"),
              std::string::npos)
        << result.out;

    // The machine leaves the binding to Slurm: the report shows Slurm's.
    result = test::runChild(srun(openMpiDirect, {"--ntasks=2", "--cpu-bind=map_cpu:1,0"},
                                 {"-cpubind", "disable", "-cpubindverbose"}),
                            "", 60);
    std::printf("%s", result.out.c_str());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Process binding (policy disable): 2 processes on 1 host"),
              std::string::npos)
        << result.out;
    EXPECT_EQ(reportedLpus(result.out),
              (std::map<unsigned, std::string>{{0, "bound to LPU 1"}, {1, "bound to LPU 0"}}))
        << result.out;
}

class SlurmAllocation : public Slurm, public testing::WithParamInterface<test::Job> {};

// The launcher, given no rank count, starts one rank for each task of the allocation, and the
// server picks the launcher's driver ("-mpi auto").
TEST_P(SlurmAllocation, MpirunStartsOneRankPerTask) {
    Arguments command{"salloc", "--ntasks=4", "--overcommit"};
    for (const auto& word : StringHelper::split(GetParam().launcher.command, ' '))
        command.push_back(word);
    command.insert(command.end(), {TOLM_SERVER_PATH, "-mpi", "auto"});
    const auto result = test::runChild(command, hostMap, 90);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto answers = test::responses(result.out);
    ASSERT_EQ(answers.size(), 1u) << result.out << result.err;
    EXPECT_EQ(answers[0].value().at("hosts")[0].at("ranks"), (std::vector<unsigned>{0, 1, 2, 3}))
        << answers[0].toString();
}

INSTANTIATE_TEST_SUITE_P(BothMpis, SlurmAllocation, test::bothMpis(4, 4),
                         [](const testing::TestParamInfo<test::Job>& info) {
                             return std::string(info.param.driver);
                         });

TEST_F(Slurm, ABatchJobLeavesTheDemoBatchsResponsesInItsOutput) {
    const std::string demo = test::readTextFile(TOLM_DEMO_BATCH);
    const auto submitted = submit(srun(openMpiDirect, {}, {}), demo);
    ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
    auto record = endedJob(submitted.out);
    EXPECT_EQ(record["JobState"], "COMPLETED");
    EXPECT_EQ(record["ExitCode"], "0:0");
    const std::string output = jobOutput(submitted.out);
    std::printf("%s", output.c_str());
    const auto answers = test::responses(output);
    ASSERT_EQ(answers.size(), test::responses(demo).size()) << output;
    EXPECT_EQ(answers[1].get<std::string>("message"), "hello from the demo job");
}

// The rank's MPI_Abort code reaches Slurm through PMIx (Slurm's PMI-2 plugin kills the step
// on an abort and keeps no code).
TEST_F(Slurm, ANonRecoverableErrorOnOneRankEndsTheJobWith32) {
    const auto submitted = submit(srun(openMpiDirect, {}, {}),
                                  "{\"command\":\"Fail\",\"ranks\":[2],\"nonRecoverable\":true}\n");
    ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
    auto record = endedJob(submitted.out);
    EXPECT_EQ(record["JobState"], "FAILED");
    EXPECT_EQ(record["ExitCode"], "32:0");
    EXPECT_NE(jobOutput(submitted.out).find("Error: Command failed on rank 2\n"), std::string::npos)
        << jobOutput(submitted.out);
}

TEST_F(Slurm, ScancelEndsEveryProcessOfTheJob) {
    const auto submitted =
        submit(srun(openMpiDirect, {}, {}), "{\"command\":\"Sleep\",\"seconds\":300}\n");
    ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
    const std::string id = submitted.out;
    std::vector<unsigned> pids;
    ASSERT_TRUE(eventually([&] { return (pids = serverPids(id)).size() == 4; }, 60))
        << "the job's 4 ranks did not start: " << jobOutput(id);
    const auto cancelled = test::runChild({"scancel", id});
    ASSERT_EQ(cancelled.exitCode, 0) << cancelled.err;
    EXPECT_TRUE(eventually([&] { return std::none_of(pids.begin(), pids.end(), running); }, 30))
        << "a rank outlived scancel";
    EXPECT_TRUE(eventually([&] { return jobRecord(id)["JobState"] == "CANCELLED"; }, 30))
        << jobRecord(id)["JobState"];
}

}  // namespace
}  // namespace tolm
