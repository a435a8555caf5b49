// FileReplacement: the target is the old file or the whole new one, never a part or nothing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "machine/files/FileReplacement.h"
#include "support/ChildRun.h"

namespace tolm {
namespace {

std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class FileReplacements : public ::testing::Test {
  protected:
    void SetUp() override {
        _target = test::makeTemporaryDirectory() + "/result.csv";
        test::writeTextFile(_target, "old");
    }
    std::string _target;
};

TEST_F(FileReplacements, TheNewFileTakesThePlaceOfTheOldOnlyOnCommit) {
    FileReplacement replacement(_target);
    EXPECT_EQ(std::filesystem::path(replacement.temporaryPath()).parent_path(),
              std::filesystem::path(_target).parent_path())
        << "a rename within one directory cannot cross file systems";
    test::writeTextFile(replacement.temporaryPath(), "new");
    EXPECT_EQ(contentOf(_target), "old");
    EXPECT_EQ(replacement.commit(), "");
    EXPECT_EQ(contentOf(_target), "new");
    EXPECT_FALSE(std::filesystem::exists(replacement.temporaryPath()));
}

TEST_F(FileReplacements, AnAbandonedWriteLeavesTheOldFileAndNoTemporaryOne) {
    std::string temporary;
    {
        FileReplacement replacement(_target);
        temporary = replacement.temporaryPath();
        test::writeTextFile(temporary, "half");
    }
    EXPECT_EQ(contentOf(_target), "old");
    EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST_F(FileReplacements, AFailedRenameIsReportedAndKeepsTheTarget) {
    std::filesystem::remove(_target);
    std::filesystem::create_directories(_target + "/inside");
    FileReplacement replacement(_target);
    test::writeTextFile(replacement.temporaryPath(), "new");
    EXPECT_EQ(replacement.commit(), "Cannot replace " + _target + ": Is a directory");
    EXPECT_TRUE(std::filesystem::exists(_target + "/inside"));
    EXPECT_FALSE(std::filesystem::exists(replacement.temporaryPath()));
}

}  // namespace
}  // namespace tolm
