// The server as a cluster's users run it, through the private Slurm cluster of
// slurm-cluster.sh: srun's direct launch under each MPI's process-management plugin, mpirun
// inside an allocation, batch jobs, a binding left to Slurm, a failing rank's exit code as
// Slurm records it, and scancel.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <thread>

#include "ServerJobs.h"
#include "platform/StringHelper.h"
#include "support/ChildRun.h"

namespace tolm {
namespace {

using Arguments = std::vector<std::string>;

// One MPI under srun: its driver and the plugin that gives its ranks their process
// management interface.
struct DirectLaunch {
    const char* driver;
    const char* plugin;
};

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

    // Submits a batch job that runs `step` with `input` on its standard input; the job's
    // output goes to job-<id>.out in the test's directory. The job's id is in `out`.
    test::ChildResult submit(const Arguments& step, const std::string& input) {
        test::writeTextFile(_dir + "/input.jsonl", input);
        std::string command;
        for (const auto& word : step)
            command += word + " ";
        auto submitted = test::runChild({"sbatch", "--parsable", "--ntasks=4", "--overcommit",
                                         "--output=" + _dir + "/job-%j.out", "--wrap",
                                         command + "< " + _dir + "/input.jsonl"});
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

    // The server processes of job `id`, from the "-printpids" lines of its output.
    std::vector<unsigned> serverPids(const std::string& id) const {
        static const std::regex line(R"(Rank \d+: process (\d+))");
        const std::string output = jobOutput(id);
        std::vector<unsigned> pids;
        for (std::sregex_iterator at(output.begin(), output.end(), line), end; at != end; ++at)
            pids.push_back(std::stoul((*at)[1]));
        return pids;
    }

    std::map<std::string, std::string> _state;
    std::string _dir;
};

// A job of four ranks as Slurm starts it: srun's direct launch (--overcommit: four ranks on a
// job of one CPU, whatever the node has), whose binding the report names; and the MPI's
// launcher inside an allocation, given no rank count, one rank for each task. Either way the
// server picks the launcher's driver ("-mpi auto").
struct SlurmStart {
    const char* name;
    Arguments command;
    bool pinnedBySlurm;
};

// `launcher` inside an allocation of four tasks.
Arguments inAllocation(const test::Launcher& launcher) {
    Arguments command{"salloc", "--ntasks=4", "--overcommit"};
    for (const auto& word : StringHelper::split(launcher.command, ' '))
        command.push_back(word);
    command.insert(command.end(), {TOLM_SERVER_PATH, "-mpi", "auto"});
    return command;
}

void PrintTo(const SlurmStart& start, std::ostream* out) {
    *out << start.name;
}

class SlurmStarts : public Slurm, public testing::WithParamInterface<SlurmStart> {};

TEST_P(SlurmStarts, FourRanksFormOneJob) {
    const auto result = test::runChild(GetParam().command, "{\"command\":\"HostMap\"}\n", 90);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto answers = test::responses(result.out);
    ASSERT_EQ(answers.size(), 1u) << result.out << result.err;
    const auto& hosts = answers[0].value().at("hosts");
    ASSERT_EQ(hosts.size(), 1u) << answers[0].toString();
    EXPECT_EQ(hosts[0].at("ranks"), (std::vector<unsigned>{0, 1, 2, 3}))
        << "one job, not four single processes";
    if (GetParam().pinnedBySlurm) {
        EXPECT_NE(result.out.find("The launcher had pinned every rank before start-up"),
                  std::string::npos)
            << "the binding report names Slurm's binding: " << result.out;
    }
}

const Arguments fourTasks{"--ntasks=4", "--overcommit"};

INSTANTIATE_TEST_SUITE_P(
    BothMpis, SlurmStarts,
    testing::Values(
        SlurmStart{"srun_openmpi4", srun(openMpiDirect, fourTasks, {"-cpubindverbose"}), true},
        SlurmStart{"srun_mpich2", srun(mpichDirect, fourTasks, {"-cpubindverbose"}), true},
        SlurmStart{"salloc_openmpi4", inAllocation(test::openMpi), false},
        SlurmStart{"salloc_mpich2", inAllocation(test::mpich), false}),
    [](const testing::TestParamInfo<SlurmStart>& info) { return std::string(info.param.name); });

// The machine leaves the binding to Slurm: the report shows Slurm's. (Binding over the CPUs a
// task may use is the host map's rule, tested under taskset in tests/mpi/hostmap.)
TEST_F(Slurm, WithBindingDisabledTheReportShowsSlurmsBinding) {
    if (std::stoul(_state.at("cpus")) < 2)
        GTEST_SKIP() << "the node has one CPU";
    const auto result = test::runChild(srun(openMpiDirect, {"--ntasks=2", "--cpu-bind=map_cpu:1,0"},
                                            {"-cpubind", "disable", "-cpubindverbose"}),
                                       "", 60);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Process binding (policy disable): 2 processes on 1 host"),
              std::string::npos)
        << result.out;
    const auto lines = test::reportedBindings(result.out);
    ASSERT_EQ(lines.size(), 2u) << result.out;
    EXPECT_EQ(lines.at(0).binding, "bound to LPU 1");
    EXPECT_EQ(lines.at(1).binding, "bound to LPU 0");
}

// The demo batch answered in the job's output; a rank's non-recoverable error recorded with its
// code, which reaches Slurm through PMIx (Slurm's PMI-2 plugin kills the step on an abort and
// keeps no code).
TEST_F(Slurm, ABatchJobEndsAsItsServerDid) {
    const std::string demo = test::readTextFile(TOLM_DEMO_BATCH);
    const struct {
        std::string input;
        const char* state;
        const char* exitCode;
        std::size_t answers;
        const char* output;
    } cases[] = {
        {demo, "COMPLETED", "0:0", test::responses(demo).size(),
         R"("message":"hello from the demo job")"},
        {R"({"command":"Fail","ranks":[2],"nonRecoverable":true})"
         "\n",
         "FAILED", "32:0", 0, "Error: Command failed on rank 2\n"},
    };
    for (const auto& [input, state, exitCode, answers, output] : cases) {
        const auto submitted = submit(srun(openMpiDirect, {}, {}), input);
        ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
        auto record = endedJob(submitted.out);
        EXPECT_EQ(record["JobState"], state);
        EXPECT_EQ(record["ExitCode"], exitCode);
        const std::string written = jobOutput(submitted.out);
        EXPECT_EQ(test::responses(written).size(), answers) << written;
        EXPECT_NE(written.find(output), std::string::npos) << written;
    }
}

TEST_F(Slurm, ScancelEndsEveryProcessOfTheJob) {
    const auto submitted = submit(srun(openMpiDirect, {}, {"-printpids"}),
                                  "{\"command\":\"Sleep\",\"seconds\":300}\n");
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
