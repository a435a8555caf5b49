// The file commands through tolm-server under both MPIs' launchers: fields written and read
// back in file order, bad files reported in the system's own words, a full disk that leaves no
// file behind.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "ServerJobs.h"

namespace tolm {
namespace {

using test::Job;
using test::responses;

class FileServer : public testing::TestWithParam<Job> {
  protected:
    void SetUp() override { _dir = test::makeTemporaryDirectory(); }
    void TearDown() override {
        ::umount2(_dir.c_str(), MNT_DETACH);  // the full-disk case's file system
        std::filesystem::remove_all(_dir);
    }
    bool openMpi() const { return std::string(GetParam().distribution) == "Open MPI"; }
    test::ChildResult run(const std::string& batch, int ranks = 0) const {
        Job job = GetParam();
        if (ranks)
            job.ranks = ranks;
        return test::runJob(job, {}, batch);
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

// Its transfers in pieces are ParallelFileTest's.
TEST_P(FileServer, AFieldWrittenReadsBackInFileOrderOnAnyJobSize) {
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
    EXPECT_TRUE(test::readTextFile(field) ==
                std::string(reinterpret_cast<const char*>(expected.data()),
                            expected.size() * sizeof(double)))
        << "the field's values in file order";
    const auto readByThree = run(fieldCommand("ReadField", field), 3);  // uneven shares
    ASSERT_EQ(readByThree.exitCode, 0) << readByThree.out << readByThree.err;
    EXPECT_EQ(responses(readByThree.out).at(0).get<std::uint64_t>("values"), 40000u);
}

// And a state file that is one, read by the master and handed to every process.
TEST_P(FileServer, BadFilesAreReportedInTheSystemsOwnWords) {
    const std::string missing = _dir + "/missing.bin";
    const std::string nowhere = "/nonexistent-dir/field.bin";
    const std::string notState = _dir + "/not-state.txt";
    const std::string noValue = _dir + "/no-value.txt";
    const std::string state = _dir + "/state.txt";
    test::writeTextFile(notState, "TolmState 2\n");
    test::writeTextFile(noValue, "TolmState 1\ntime 0.5\nname\n");
    test::writeTextFile(state, "TolmState 1\niteration 42\nname cavity\n");
    const auto result =
        run(fieldCommand("ReadField", missing) + fieldCommand("WriteField", nowhere, 4) +
            fieldCommand("RestoreState", missing) + fieldCommand("RestoreState", notState) +
            fieldCommand("RestoreState", noValue) + fieldCommand("ReadField", "/dev/zero") +
            fieldCommand("RestoreState", "/dev/zero") + fieldCommand("RestoreState", state));
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
    const std::string notRegular =
        R"({"error":"Error","message":"/dev/zero is not a regular file","severity":1})";
    for (const int answer : {5, 6})
        EXPECT_EQ(answers[answer].toString(), notRegular) << "an error and no size beside it";
    EXPECT_EQ(answers[7].getChild("entries"), Properties(R"({"iteration":"42","name":"cavity"})"));
    EXPECT_TRUE(answers[7].get<bool>("ranksAgree"));
}

TEST_P(FileServer, AFullDiskKeepsThePreviousFileAndMakesNoClaimOfANewOne) {
    if (::mount("tmpfs", _dir.c_str(), "tmpfs", 0, "size=1m") != 0)  // needs root
        GTEST_SKIP() << "cannot mount a 1 MiB tmpfs here: " << std::strerror(errno);
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

INSTANTIATE_TEST_SUITE_P(BothMpis, FileServer, test::bothMpis(4, 4), test::caseName);

}  // namespace
}  // namespace tolm
