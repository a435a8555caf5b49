// InputFileStream and OutputFileStream on both MPIs: what the reader reads reaches the other
// processes only with the broadcast flag, and then whole; without it they keep their values and
// answer their defaults; open and is_open always give the master's answer.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>

#include "FileTesting.h"
#include "machine/files/InputFileStream.h"
#include "machine/files/OutputFileStream.h"

namespace tolm::mpitest {
namespace {

// Reads one value into a destination that starts as `start`, expecting `expected`.
template <typename T>
void expectRead(InputFileStream& in, T start, const T& expected) {
    in >> start;
    EXPECT_EQ(start, expected);
}

class FileStreams : public testing::Test {
  protected:
    // The master writes `text` to `name` in the job's directory; every rank gets the path.
    std::string mastersFile(const char* name, const std::string& text) const {
        const std::string path = _dir.path() + "/" + name;
        if (_master)
            test::writeTextFile(path, text);
        world().synchronise();
        return path;
    }

    const unsigned int _rank = world().myRank();
    const bool _master = _rank == 0;
    JobDirectory _dir;
};

TEST_F(FileStreams, WithoutTheFlagOthersKeepTheirValuesAndAnswerTheirDefaults) {
    InputFileStream in(mastersFile("in.txt", "42 x").c_str());
    int value = 1000 + int(_rank);
    in >> value;
    EXPECT_EQ(value, _master ? 42 : 1000 + int(_rank));
    EXPECT_EQ(in.eof(), !_master) << "not at the end on the master; the others' default";
    EXPECT_TRUE(in.good());
    EXPECT_FALSE(in.fail());
    EXPECT_FALSE(in.bad());
    EXPECT_EQ(in.get(), _master ? ' ' : -1);
    EXPECT_EQ(in.gcount(), _master ? 1 : 0);
    EXPECT_EQ(in.peek(), _master ? 'x' : -1);
    EXPECT_EQ(in.tellg(), std::streampos(_master ? 3 : 0));
    char c = 'q';
    EXPECT_TRUE(in.get(c));
    EXPECT_EQ(c, _master ? 'x' : 'q');
}

TEST_F(FileStreams, WithTheFlagEveryProcessTakesTheMastersValues) {
    InputFileStream in(mastersFile("typed.txt",
                                   "1 c d -300 60000 -70000 4000000000 -9000000000 "
                                   "18000000000000000000 0.5 0.25 0.125 word")
                           .c_str());
    in.setBroadcastFlag(true);
    EXPECT_TRUE(in.getBroadcastFlag());
    // Every destination starts out different on every rank.
    const int r = int(_rank) + 1;
    expectRead(in, false, true);
    expectRead(in, char('A' + r), 'c');
    expectRead(in, static_cast<unsigned char>(r), static_cast<unsigned char>('d'));
    expectRead(in, short(-r), short(-300));
    expectRead(in, static_cast<unsigned short>(r), static_cast<unsigned short>(60000));
    expectRead(in, -r, -70000);
    expectRead(in, unsigned(r), 4000000000u);
    expectRead(in, std::int64_t(-r), std::int64_t(-9000000000));
    expectRead(in, std::uint64_t(r), std::uint64_t(18000000000000000000ull));
    expectRead(in, float(r), 0.5f);
    expectRead(in, double(r), 0.25);
    expectRead(in, static_cast<long double>(r), 0.125L);
    expectRead(in, std::string(std::size_t(r), '?'), std::string("word"));
    // At the end the master's string stays empty, and so must everyone's.
    std::string last = _master ? "" : "left over";
    in >> last;
    EXPECT_EQ(last, "");
    EXPECT_TRUE(in.eof());
    EXPECT_TRUE(in.fail());
    EXPECT_FALSE(in.good());
}

TEST_F(FileStreams, UnformattedInputSharesWholeBuffers) {
    InputFileStream in(mastersFile("lines.txt", "ab\ncdefgh\nrest of it").c_str());
    in.setBroadcastFlag(true);
    // The master's buffer keeps its own 'A's past what it read; the others take all of it.
    const char fill = char('A' + _rank);
    std::array<char, 8> buffer;
    buffer.fill(fill);
    EXPECT_TRUE(in.get(buffer.data(), 8));
    EXPECT_EQ(std::string(buffer.data(), 8), std::string("ab\0AAAAA", 8));
    EXPECT_EQ(in.gcount(), 2);
    EXPECT_EQ(in.get(), '\n');
    buffer.fill(fill);
    EXPECT_TRUE(in.getline(buffer.data(), 8));
    EXPECT_EQ(std::string(buffer.data(), 8), std::string("cdefgh\0A", 8));
    EXPECT_EQ(in.peek(), 'r');
    EXPECT_EQ(in.tellg(), std::streampos(10));
    char c = fill;
    EXPECT_TRUE(in.get(c));
    EXPECT_EQ(c, 'r');
    buffer.fill(fill);
    in.read(buffer.data(), 8);
    EXPECT_EQ(std::string(buffer.data(), 8), "est of i");
}

TEST_F(FileStreams, CharacterPointerExtractionIsRefusedOnlyWithTheFlag) {
    InputFileStream in(mastersFile("words.txt", "first second").c_str());
    char word[16] = "untouched";
    in >> static_cast<char*>(word);
    EXPECT_STREQ(word, _master ? "first" : "untouched");
    in.setBroadcastFlag(true);
    EXPECT_EQ(failureOf([&] { in >> static_cast<char*>(word); }),
              "Not implemented yet | !_broadcast");
    EXPECT_STREQ(word, _master ? "second" : "untouched") << "the reader extracts first";
}

TEST_F(FileStreams, AFileOnlyTheMasterSeesIsOpenEverywhere) {
    RankWorkingDirectory here(_dir);
    if (_master)
        test::writeTextFile("state.txt", "7");
    world().synchronise();
    InputFileStream everywhere("state.txt");  // opened by every process, found by the master
    EXPECT_TRUE(everywhere.is_open());
    InputFileStream in;
    EXPECT_TRUE(in.open("state.txt"));
    in.setBroadcastFlag(true);
    int value = -1;
    in >> value;
    EXPECT_EQ(value, 7);
    if (!_master)
        test::writeTextFile("slaves.txt", "1");
    world().synchronise();
    EXPECT_FALSE(InputFileStream().open("slaves.txt")) << "the master's answer";
}

TEST_F(FileStreams, OnlyTheWriterWritesAndOpenIsTheMastersAnswer) {
    RankWorkingDirectory here(_dir);
    OutputFileStream out;
    ASSERT_TRUE(out.open("out.txt"));
    out << "rank " << int(_rank) << '\n';
    out.write("w", 1).put('p').flush();
    EXPECT_FALSE(out.eof());
    out.close();
    EXPECT_EQ(std::filesystem::exists("out.txt"), _master);
    if (_master) {
        EXPECT_EQ(readTextFile("out.txt"), "rank 0\nwp");
    }
    if (!_master)
        std::filesystem::create_directory("sub");
    world().synchronise();
    EXPECT_FALSE(out.open("sub/out.txt")) << "the master could not open it";
    EXPECT_EQ(out.fail(), _master) << "the others' default";
    out.setBroadcastFlag(true);
    EXPECT_TRUE(out.fail());
    EXPECT_FALSE(out.good());
}

}  // namespace
}  // namespace tolm::mpitest
