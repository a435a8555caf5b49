// The file commands and the slaves' log files through tolm-server under both MPIs' launchers:
// fields written in pieces and read back in file order, bad files reported in the system's own
// words, a full disk that leaves no file behind, a state file only the master can see.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "ServerJobs.h"

namespace tolm {
namespace {

using test::Job;
using test::responses;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A tmpfs of 1 MiB mounted at `dir` for the test's duration; needs root.
class SmallFileSystem {
  public:
    SmallFileSystem(const std::string& dir, unsigned long flags) : _dir(dir) {
        _mounted = ::mount("tmpfs", dir.c_str(), "tmpfs", flags, "size=1m") == 0;
        _reason = _mounted ? "" : std::strerror(errno);
    }
    ~SmallFileSystem() {
        if (_mounted)
            ::umount2(_dir.c_str(), MNT_DETACH);
    }
    SmallFileSystem(const SmallFileSystem&) = delete;
    SmallFileSystem& operator=(const SmallFileSystem&) = delete;
    bool mounted() const { return _mounted; }
    const std::string& reason() const { return _reason; }

  private:
    std::string _dir;
    bool _mounted = false;
    std::string _reason;
};

class FileServer : public testing::TestWithParam<Job> {
  protected:
    void SetUp() override { _dir = test::makeTemporaryDirectory(); }
    void TearDown() override {
        ::unsetenv("TOLM_MPI_MAX_BUFFER_SIZE");
        std::filesystem::remove_all(_dir);
    }
    bool openMpi() const { return std::string(GetParam().distribution) == "Open MPI"; }
    test::ChildResult run(const std::string& batch, const std::vector<std::string>& arguments = {},
                          int ranks = 0) const {
        Job job = GetParam();
        if (ranks)
            job.ranks = ranks;
        return test::runJob(job, arguments, batch);
    }

    std::string _dir;
};

std::string fieldCommand(const char* command, const std::string& path, int perRank = -1) {
    std::string text =
        "{\"command\":\"" + std::string(command) + "\",\"filename\":\"" + path + "\"";
    if (perRank >= 0)
        text += ",\"valuesPerRank\":" + std::to_string(perRank);
    return text + "}\n";
}

TEST_P(FileServer, AFieldWrittenInPiecesReadsBackInFileOrderOnAnyJobSize) {
    ::setenv("TOLM_MPI_MAX_BUFFER_SIZE", "4096", 1);  // 512 values a piece
    const std::string field = _dir + "/field.bin";
    const auto written =
        run(fieldCommand("WriteField", field, 10000) + fieldCommand("ReadField", field));
    ASSERT_EQ(written.exitCode, 0) << written.out << written.err;
    const auto answers = responses(written.out);
    ASSERT_EQ(answers.size(), 2u) << written.out;
    for (const auto& answer : answers) {
        EXPECT_EQ(answer.get<std::uint64_t>("values"), 40000u);
        EXPECT_EQ(answer.get<std::uint64_t>("bytes"), 320000u);
    }
    std::vector<double> expected(40000);
    for (std::size_t i = 0; i < expected.size(); ++i)
        expected[i] = double(i) * 0.5 + 0.25;
    EXPECT_TRUE(readFile(field) == std::string(reinterpret_cast<const char*>(expected.data()),
                                               expected.size() * sizeof(double)))
        << "the field's values in file order";
    const auto readByThree = run(fieldCommand("ReadField", field), {}, 3);  // uneven shares
    ASSERT_EQ(readByThree.exitCode, 0) << readByThree.out << readByThree.err;
    EXPECT_EQ(responses(readByThree.out).at(0).get<std::uint64_t>("values"), 40000u);
}

TEST_P(FileServer, BadFilesAreReportedInTheSystemsOwnWords) {
    const std::string missing = _dir + "/missing.bin";
    const std::string nowhere = "/nonexistent-dir/field.bin";
    const std::string notState = _dir + "/not-state.txt";
    const std::string noValue = _dir + "/no-value.txt";
    test::writeTextFile(notState, "TolmState 2\n");
    test::writeTextFile(noValue, "TolmState 1\ntime 0.5\nname\n");
    const auto result =
        run(fieldCommand("ReadField", missing) + fieldCommand("WriteField", nowhere, 4) +
            fieldCommand("RestoreState", missing) + fieldCommand("RestoreState", notState) +
            fieldCommand("RestoreState", noValue) + fieldCommand("ReadField", "/dev/zero") +
            fieldCommand("RestoreState", "/dev/zero") + fieldCommand("ReadField", _dir));
    EXPECT_EQ(result.exitCode, 1) << result.err;
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 8u) << result.out;
    EXPECT_EQ(answers[0].get<std::string>("message"),
              "Cannot open the field file " + missing + " for reading: " +
                  (openMpi() ? "MPI_ERR_NO_SUCH_FILE: no such file or directory"
                             : "File does not exist, error stack:\nADIOI_UFS_OPEN(37): File " +
                                   missing + " does not exist"));
    EXPECT_EQ(answers[1].get<std::string>("message"),
              "Cannot open the field file " + nowhere + " for writing: " +
                  (openMpi() ? "MPI_ERR_NO_SUCH_FILE: no such file or directory"
                             : "File does not exist, error stack:\n"
                               "ADIO_RESOLVEFILETYPE_FNCALL(397): Invalid file name " +
                                   nowhere + ".partial"));
    EXPECT_EQ(answers[2].get<std::string>("message"),
              "Cannot open the state file " + missing + ": No such file or directory");
    EXPECT_EQ(answers[3].get<std::string>("message"),
              notState + " is not a state file: it does not begin with \"TolmState 1\"");
    EXPECT_EQ(answers[4].get<std::string>("message"),
              "The state file " + noValue + " ends without a value for \"name\"");
    for (const auto& [answer, path] : {std::pair{5, "/dev/zero"}, std::pair{6, "/dev/zero"},
                                       std::pair{7, _dir.c_str()}}) {
        EXPECT_EQ(answers[answer].toString(),
                  R"({"error":"Error","message":")" + std::string(path) +
                      R"( is not a regular file","severity":1})")
            << "an error and no size beside it";
    }
}

TEST_P(FileServer, AFullDiskKeepsThePreviousFileAndMakesNoClaimOfANewOne) {
    const SmallFileSystem small(_dir, 0);
    if (!small.mounted())
        GTEST_SKIP() << "cannot mount a 1 MiB tmpfs here: " << small.reason();
    const std::string field = _dir + "/field.bin";
    const auto result = run(fieldCommand("WriteField", field, 4) +
                            fieldCommand("WriteField", field, 100000));  // 3.2 MB on 1 MiB
    EXPECT_EQ(result.exitCode, 1) << result.err;
    ASSERT_EQ(responses(result.out).size(), 2u) << result.out;
    const auto answer = responses(result.out).at(1);
    EXPECT_FALSE(answer.has("values") || answer.has("bytes")) << answer.toString();
    EXPECT_EQ(std::filesystem::file_size(field), 4u * GetParam().ranks * sizeof(double))
        << "the field of the first command";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_dir), {}), 1)
        << "no temporary file is left";
    const auto message = answer.get<std::string>("message");
    if (openMpi()) {  // ompio reports success and prints the system's text itself
        EXPECT_EQ(
            message.rfind("The field file " + field + " does not read back as written: value ", 0),
            0u)
            << message;
        EXPECT_TRUE(message.ends_with(" differs (is the disk full?)")) << message;
        EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
    } else {
        EXPECT_EQ(message,
                  "Writing the field file " + field +
                      " failed: Other I/O error , error stack:\n"
                      "ADIOI_GEN_WRITECONTIG(80): Other I/O error No space left on device");
    }
}

// The master's working directory holds the state file; the slaves' is empty.
TEST_P(FileServer, AStateFileOnlyTheMasterSeesReachesEveryProcess) {
    const std::string masterDir = _dir + "/master", slaveDir = _dir + "/slaves";
    std::filesystem::create_directories(masterDir);
    std::filesystem::create_directories(slaveDir);
    test::writeTextFile(masterDir + "/state.txt", "TolmState 1\niteration 42\nname cavity\n");
    const Job& job = GetParam();
    std::vector<std::string> command = test::jobCommand(job, {});
    const auto program = std::find(command.begin(), command.end(), "-n");
    const std::vector<std::string> launcher(command.begin(), program);
    const std::vector<std::string> server(program + 2, command.end());
    command = launcher;
    for (const auto& [ranks, dir] : {std::pair{1, masterDir}, std::pair{job.ranks - 1, slaveDir}}) {
        if (command.size() > launcher.size())
            command.push_back(":");
        command.insert(command.end(), {"-n", std::to_string(ranks), "-wdir", dir});
        command.insert(command.end(), server.begin(), server.end());
    }
    const auto result = test::runChild(command, fieldCommand("RestoreState", "state.txt"), 60);
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    const auto answer = responses(result.out).at(0);
    EXPECT_EQ(answer.getChild("entries"), Properties(R"({"iteration":"42","name":"cavity"})"));
    EXPECT_TRUE(answer.get<bool>("ranksAgree"));
}

TEST_P(FileServer, SlaveLogsKeepASlavesLastErrorAndTheConsoleSaysWhere) {
    const std::string logs = _dir + "/logs";
    const auto result =
        run("{\"command\":\"MachineInfo\"}\n"
            "{\"command\":\"Fail\",\"ranks\":[2],\"nonRecoverable\":true}\n",
            {"-slavelogs", logs});
    EXPECT_EQ(result.exitCode, 32) << result.err;
    const auto pids = responses(result.out).at(0).get<std::vector<int>>("pids");
    ASSERT_EQ(pids.size(), 4u);
    const std::string stem = logs + "/tolm-server" + std::to_string(pids[2]);
    const std::string log = readFile(stem + "-stderr.txt");
    EXPECT_TRUE(log.starts_with("Error: Command failed on rank 2\n")) << log;  // then its stack
    EXPECT_EQ(result.err.find("Command failed on rank 2"), std::string::npos)
        << "the slave's console is its log";
}

INSTANTIATE_TEST_SUITE_P(BothMpis, FileServer, test::bothMpis(4, 4), test::caseName);

TEST(SerialFileServer, FieldsNeedMpiWhileStateFilesRestoreAlone) {
    const std::string dir = test::makeTemporaryDirectory();
    test::writeTextFile(dir + "/state.txt", "TolmState 1\ntime 0.5\n");
    const auto result = test::runChild({TOLM_SERVER_PATH, "-s"},
                                       fieldCommand("WriteField", dir + "/field.bin", 4) +
                                           fieldCommand("RestoreState", dir + "/state.txt"));
    std::filesystem::remove_all(dir);
    const auto answers = responses(result.out);
    ASSERT_EQ(answers.size(), 2u) << result.out << result.err;
    EXPECT_EQ(answers[0].get<std::string>("message"),
              "WriteField needs MPI: start the server under mpiexec, without -s");
    EXPECT_EQ(answers[1].getChild("entries"), Properties(R"({"time":"0.5"})"));
    EXPECT_TRUE(answers[1].get<bool>("ranksAgree"));
}

}  // namespace
}  // namespace tolm
