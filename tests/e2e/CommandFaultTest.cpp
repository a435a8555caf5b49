// Faults across the processes of a job, and how the job tells its user: failed commands, a
// non-recoverable error, a rank that dies, a launcher that does not match the MPI driver, and
// a rank that fails before a collective the others entered (the roll-call).
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <regex>

#include "ServerJobs.h"
#include "support/InteractiveChild.h"

namespace tolm {
namespace {

using test::InteractiveChild;
using test::Job;
using test::occurrences;
using test::responses;

class CommandFaults : public testing::TestWithParam<Job> {};

// Each line is answered with its error, and the job goes on to the end of the batch, whose last
// line is cut off. A batch file: MPICH's launcher ends the job when a long line arrives on
// standard input faster than the master reads it.
TEST_P(CommandFaults, FailedCommandsAreAnsweredAndTheJobGoesOn) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const struct {
        std::string line;
        std::string message;  // none for the echo that shows the job went on
        int rank;             // the answer's "Rank", -1 for none
    } cases[] = {
        {R"({"command":"Fail","ranks":[2,1]})", "Command failed on rank 1", 1},
        {R"({"command":"Fail","ranks":[3,0]})", "Command failed on rank 0", -1},
        {R"({"command":"RaiseFloatingPointError","rank":3})",
         "A floating point error has occurred. The following error has been logged:\n"
         "  Floating point division by zero, the specific cause cannot be identified\n"
         "Please refer to the troubleshooting section of the User's Guide.",
         -1},  // every rank raised it, the master too
        {R"({"command":"Echo","deep":)" + deep + "}",
         "Malformed command on line 4: Malformed properties text: nested deeper than 128 levels",
         -1},
        {R"({"command":"Fail","ranks":[4]})", "\"ranks\" must be a list of integers in 0..3", -1},
        {R"({"command":"Echo","after":true})", "", -1},
        {R"({"command":"Ec)",
         "Malformed command on line 7: Malformed properties text: not valid JSON", -1},
    };
    std::string lines;
    for (const auto& entry : cases)
        lines += entry.line + "\n";
    const std::string batch = test::makeTemporaryDirectory() + "/batch.jsonl";
    test::writeTextFile(batch, lines.substr(0, lines.size() - 1));
    const auto result = test::runJob(GetParam(), {"-batch", batch});
    std::filesystem::remove_all(std::filesystem::path(batch).parent_path());
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), std::size(cases)) << result.out << result.err;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        SCOPED_TRACE(cases[i].line.substr(0, 40));
        EXPECT_EQ(answers[i].get<std::string>("message", ""), cases[i].message);
        EXPECT_EQ(answers[i].get<int>("Rank", -1), cases[i].rank);
        EXPECT_TRUE(!cases[i].message.empty() || answers[i].get<bool>("after", false));
    }
}

// A slave's error, which goes to its log with "-slavelogs", and one on the master's worker
// thread (a worker's error reaching its caller is HybridSerialTest's, WorkerThreadPolicy): the
// job ends with 32 and the message appears once, on the console or at the start of the log.
TEST_P(CommandFaults, ANonRecoverableErrorEndsTheJobWith32AndItsMessageOnce) {
    const std::string logs = test::makeTemporaryDirectory();
    const struct {
        std::vector<std::string> arguments;
        const char* command;
        int rank;
    } cases[] = {
        {{"-slavelogs", logs}, R"({"command":"Fail","ranks":[2],"nonRecoverable":true})", 2},
        {{}, R"({"command":"Fail","ranks":[0],"nonRecoverable":true,"onWorkerThread":true})", 0},
    };
    for (const auto& [arguments, command, rank] : cases) {
        const auto result = test::runJob(GetParam(), arguments,
                                         "{\"command\":\"MachineInfo\"}\n" + std::string(command) +
                                             "\n{\"command\":\"Echo\"}\n");
        EXPECT_EQ(result.exitCode, 32) << result.err;
        const auto answers = responses(result.out);
        ASSERT_EQ(answers.size(), 1u) << "none after the error\n" << result.out;
        const int pid = answers[0].get<std::vector<int>>("pids").at(rank);
        const std::string log =
            test::readTextFile(logs + "/tolm-server" + std::to_string(pid) + "-stderr.txt");
        const std::string message = "Error: Command failed on rank " + std::to_string(rank) + "\n";
        EXPECT_EQ(occurrences(result.err + log, message), 1u) << result.err << log;
        EXPECT_TRUE(rank == 0 || log.starts_with(message)) << log;  // then its stack
    }
    std::filesystem::remove_all(logs);
}

// The process id of `rank`, from the "-printpids" lines on the job's standard error.
int announcedPid(const InteractiveChild& job, unsigned int rank) {
    const std::string prefix = "Rank " + std::to_string(rank) + ": process ";
    for (int attempt = 0; attempt < 3000; ++attempt) {
        const std::string err = job.standardError();
        const auto at = err.find(prefix);
        if (at != std::string::npos)
            return std::stoi(err.substr(at + prefix.size()));
        ::usleep(10 * 1000);
    }
    return -1;
}

// The job ends by itself, within the wait, and not with success: a rank killed during
// start-up, a slave killed while the others wait in a collective, and the master ended by a
// fatal signal, which it names.
TEST_P(CommandFaults, ARankThatDiesEndsTheJob) {
    const struct {
        const char* command;  // sent once the job runs, before the signal; none during start-up
        unsigned int rank;
        int signal;
        const char* message;
    } cases[] = {
        {nullptr, 3, SIGKILL, ""},
        {R"({"command":"Sleep","ranks":[0],"seconds":5})", 1, SIGKILL, ""},
        {"", 0, SIGSEGV, "Error: rank 0 ended by signal SIGSEGV (segmentation fault)\n"},
    };
    for (const auto& [command, rank, signal, message] : cases) {
        SCOPED_TRACE(::strsignal(signal) + std::string(" to rank ") + std::to_string(rank));
        InteractiveChild server(test::jobCommand(GetParam(), {"-printpids"}));
        const int pid = announcedPid(server, rank);
        ASSERT_GT(pid, 0) << server.standardError();
        if (command) {
            std::string line;
            server.writeLine("{\"command\":\"Echo\"}");
            ASSERT_TRUE(server.readLine(line, 30)) << server.standardError();
            if (*command)
                server.writeLine(command);
            ::usleep(500 * 1000);  // the slaves are now idle, or inside the command's collectives
        }
        ::kill(pid, signal);
        const int exitCode = server.waitForExit(15);
        EXPECT_NE(exitCode, -1) << "the job still ran 15 s after a rank died";
        EXPECT_NE(exitCode, 0);
        EXPECT_TRUE(!*message || occurrences(server.standardError(), message) == 1)
            << server.standardError();
    }
}

// The roll-call line of `rank`, in the shape every line has.
std::string rollCallPattern(int rank, const std::string& state, const std::string& rest) {
    return "Roll-call: host [^,]+, rank " + std::to_string(rank) + ", pid [0-9]+, " + state +
           ", command \"" + rest;
}

void expectLine(const std::string& err, const std::string& pattern) {
    EXPECT_TRUE(std::regex_search(err, std::regex("(^|\n)" + pattern + "\n"))) << pattern << "\n"
                                                                               << err;
}

TEST_P(CommandFaults, ARankFailingBeforeACollectiveEndsTheJobWithItsErrorAndARollCall) {
    const auto result =
        test::runJob(GetParam(), {"-hangtimeout", "2"},
                     "{\"command\":\"Fail\",\"ranks\":[1],\"beforeCollective\":true}\n"
                     "{\"command\":\"Echo\",\"never\":true}\n");
    EXPECT_EQ(result.exitCode, 32) << result.err;
    EXPECT_EQ(occurrences(result.err, "Error: Command failed on rank 1\n"), 1u) << result.err;
    const std::string waited = R"( for [0-9]+\.[0-9] s)";
    expectLine(result.err,
               rollCallPattern(1, "Gathering response",
                               R"(Fail", in Communicator::AllReduce \(4 bytes, machine's )"
                               R"(private communicator\))" +
                                   waited + R"(, holding error "Command failed on rank 1")"));
    for (int rank : {0, 2, 3}) {
        expectLine(result.err, rollCallPattern(rank, "Processing",
                                               R"(Fail", in Communicator::AllReduce \(4 bytes, )"
                                               R"(global communicator\))" +
                                                   waited));
    }
    EXPECT_TRUE(responses(result.out).empty()) << result.out;
}

// Also: waiting for the next command, longer than the hang limit, does not end the job.
TEST_P(CommandFaults, TheRollCallOnDemandLeavesTheJobRunning) {
    InteractiveChild server(test::jobCommand(GetParam(), {"-hangtimeout", "1"}));
    server.writeLine("{\"command\":\"Echo\",\"n\":1}");
    std::string line;
    ASSERT_TRUE(server.readLine(line, 30)) << server.standardError();
    ::kill(server.pid(), SIGUSR1);  // to the launcher, which passes it on to every rank
    for (int attempt = 0; attempt < 500 && occurrences(server.standardError(), "Roll-call:") < 4;
         ++attempt) {
        ::usleep(20 * 1000);
    }
    const std::string err = server.standardError();
    for (int rank = 0; rank < GetParam().ranks; ++rank)
        expectLine(err, rollCallPattern(rank, "Awaiting command", "Echo\", .*"));
    ::usleep(2500 * 1000);  // idle for longer than the limit
    server.writeLine("{\"command\":\"Echo\",\"n\":2}");
    ASSERT_TRUE(server.readLine(line, 30)) << server.standardError();
    EXPECT_EQ(Properties(line).get<int>("n"), 2);
    server.closeInput();
    EXPECT_EQ(server.waitForExit(30), 0) << server.standardError();
}

INSTANTIATE_TEST_SUITE_P(BothMpis, CommandFaults, test::bothMpis(4, 4), test::caseName);

// Open MPI's launcher with MPICH's driver: every process would be a job of its own. The other
// way round differs only in the launcher's name (LauncherEnvironmentTest).
TEST(LauncherCheck, AMismatchedDriverIsRefusedWithOneMessage) {
    const auto result =
        test::runJob(Job{"mpich2", test::openMpi, "MPICH", 2}, {}, "{\"command\":\"Echo\"}\n");
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_EQ(occurrences(result.err,
                          "Error: Open MPI's mpirun started 2 processes, but MPI sees 1: the MPI "
                          "driver does not match the launcher. Start the server with \"-mpi "
                          "openmpi4\" (or \"-mpi auto\") under this launcher.\n"),
              1u)
        << result.err;
    EXPECT_TRUE(responses(result.out).empty()) << "no process ran the batch\n" << result.out;
}

}  // namespace
}  // namespace tolm
