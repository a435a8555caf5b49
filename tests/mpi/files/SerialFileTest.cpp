// Files and streams in one process without MPI: the halving of transfers, the broadcasting
// streams of a serial run (which must never broadcast), misuse of a closed ParallelFile, and
// the console option.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "machine/files/InputFileStream.h"
#include "machine/core/Machine.h"
#include "machine/core/OptionError.h"
#include "machine/files/OutputFileStream.h"
#include "machine/files/ParallelFile.h"
#include "machine/files/ParallelFileTransfer.h"
#include "machine/files/StandardStreamManager.h"
#include "neo/InternalError.h"
#include "support/Argv.h"
#include "support/ChildRun.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using Piece = std::tuple<std::int64_t, std::uint64_t, unsigned int>;  // offset, data, count

// The pieces a transfer of `count` elements at `offset` is cut into, with each piece's place
// in memory as a distance from `base`; `failAt` makes that piece (0-based) fail with code 7.
std::vector<Piece> pieces(const char* base, unsigned int count, unsigned int elementSize,
                          std::uint64_t limit, bool stop, int failAt = -1, int* code = nullptr) {
    std::vector<Piece> seen;
    const auto fits = [&](unsigned int n) {
        return n <= 0x7FFFFFFFu && std::uint64_t(n) * elementSize <= limit;
    };
    const auto transfer = [&](std::int64_t offset, const char* data, unsigned int n) {
        seen.emplace_back(offset, std::uint64_t(data - base), n);
        return int(seen.size()) - 1 == failAt ? 7 : 0;
    };
    const int result = detail::transferInHalves(std::int64_t(1000), base, count, elementSize, fits,
                                                transfer, stop);
    if (code)
        *code = result;
    return seen;
}

TEST(TransferInHalves, PiecesFollowFileOrderWithTheSecondHalfFurtherOn) {
    const std::vector<char> buffer(64);
    // 5 elements of 4 bytes, 2 fit: 2, then the 3 of the second half as 1 and 2.
    EXPECT_EQ(pieces(buffer.data(), 5, 4, 8, false),
              (std::vector<Piece>{{1000, 0, 2}, {1008, 8, 1}, {1012, 12, 2}}));
    EXPECT_EQ(pieces(buffer.data(), 4, 4, 16, false), (std::vector<Piece>{{1000, 0, 4}}));
    // One element cannot be cut, however large.
    EXPECT_EQ(pieces(buffer.data(), 1, 16, 8, false), (std::vector<Piece>{{1000, 0, 1}}));
}

TEST(TransferInHalves, MoreThanTheLargestIntCountIsHalvedWhateverTheLimit) {
    constexpr std::size_t bytes = std::size_t(1) << 31;
    // Address space only: the pieces are never touched.
    void* reserved =
        ::mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(reserved, MAP_FAILED);
    const auto* base = static_cast<const char*>(reserved);
    EXPECT_EQ(pieces(base, 1u << 31, 1, ~0ull, false),
              (std::vector<Piece>{{1000, 0, 1u << 30}, {1000 + (1 << 30), 1u << 30, 1u << 30}}));
    ::munmap(reserved, bytes);
}

TEST(TransferInHalves, AFailingPieceStopsTheRestOnlyWhenAsked) {
    const std::vector<char> buffer(64);
    int code = 0;
    EXPECT_EQ(pieces(buffer.data(), 4, 4, 8, true, 0, &code).size(), 1u);
    EXPECT_EQ(code, 7);
    EXPECT_EQ(pieces(buffer.data(), 4, 4, 8, false, 0, &code).size(), 2u);
    EXPECT_EQ(code, 7) << "the first failure is the one reported";
    EXPECT_EQ(pieces(buffer.data(), 5, 4, 8, true, 1, &code).size(), 2u);
    EXPECT_EQ(code, 7);
}

class SerialStreams : public testing::Test {
  protected:
    void SetUp() override { _dir = test::makeTemporaryDirectory(); }
    std::string path(const char* name) const { return _dir + "/" + name; }
    std::string _dir;
};

// A serial run has no global communicator: any broadcast would raise.
TEST_F(SerialStreams, InputReadsAlonePlainlyAndNeverBroadcasts) {
    test::writeTextFile(path("in.txt"), "7 word abcdefgh tail");
    InputFileStream in;
    in.setBroadcastFlag(true);
    EXPECT_FALSE(in.getBroadcastFlag());
    ASSERT_TRUE(in.open(path("in.txt").c_str()));
    EXPECT_TRUE(in.is_open());
    int number = 0;
    std::string word;
    in >> number >> word;
    char pointed[16] = "xxxxxxxxxxxxxxx";
    in >> static_cast<char*>(pointed);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(word, "word");
    EXPECT_STREQ(pointed, "abcdefgh");
    EXPECT_EQ(in.tellg(), std::streampos(15));
    in.close();
    EXPECT_FALSE(in.is_open());
    EXPECT_FALSE(InputFileStream().open(path("missing.txt").c_str()));
}

TEST_F(SerialStreams, CopiesShareOneStreamThatOutlivesTheOriginal) {
    test::writeTextFile(path("in.txt"), "1 2");
    std::optional<InputFileStream> original(std::in_place, path("in.txt").c_str());
    InputFileStream copy(*original);
    int first = 0, second = 0;
    *original >> first;
    original.reset();
    copy >> second;
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

// Opens on construction, in text mode, as a subclass may ask for.
class TextOutput : public OutputFileStream {
  public:
    explicit TextOutput(const char* name) : OutputFileStream(name) {}
};

TEST_F(SerialStreams, OutputWritesAloneInTheModeAskedFor) {
    OutputFileStream out;
    out.setBroadcastFlag(true);
    EXPECT_FALSE(out.getBroadcastFlag());
    ASSERT_TRUE(out.open(path("out.txt").c_str()));
    out << 42 << ' ' << std::hex << 255 << std::dec << ' ' << 1.5 << ' ' << std::string("s");
    out.put('!').write("xyz", 2).seekp(0);
    out << 'W';
    out.close();
    ASSERT_TRUE(out.open(path("out.txt").c_str(), int(std::ios::out | std::ios::app)));
    out << "+" << std::endl;
    out.close();
    EXPECT_FALSE(out.is_open());
    EXPECT_EQ(test::readTextFile(path("out.txt")), "W2 ff 1.5 s!xy+\n");
    TextOutput created(path("created.txt").c_str());
    EXPECT_TRUE(created.is_open());
}

using test::failureOf;

TEST(ClosedParallelFile, EveryTransferAndQueryRaisesBeforeMpi) {
    ParallelFile file;
    EXPECT_FALSE(file.isOpen());
    file.close();  // never opened: nothing to do
    int value = 0;
    const ParallelFile::View view{&value, 1, QMX_MPI_INT, sizeof(int)};
    const std::string notOpen = "file not open | isOpen()";
    EXPECT_EQ(failureOf([&] { file.write(view); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.read(view); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.writeAt(0, view); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.readAt(0, view); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.writeAtAll(0, view); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.readAtAll(0, view); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.getFileSize(); }), notOpen);
    std::map<std::string, std::string> info;
    EXPECT_EQ(failureOf([&] { file.getInfo(info); }), notOpen);
    EXPECT_EQ(failureOf([&] { file.communicator(); }),
              "The parallel file has no communicator | _communicator");
}

TEST(SerialConsole, TheManagerLivesFromStartToStopAndRedirectsNothing) {
    Machine& machine = Machine::getSingleton();
    const std::string dir = test::makeTemporaryDirectory();
    test::Argv argv({"server", "-slavelogs", dir + "/logs"});
    Machine::ArgumentMap consumed;
    Machine::parseCommonArgvs(argv.argc(), argv.argv(), consumed);
    EXPECT_EQ(consumed["-slavelogs"], 2u);
    EXPECT_TRUE(std::filesystem::is_directory(dir + "/logs"));
    Machine::startConsole();
    EXPECT_FALSE(machine.getStandardStreamManager().hasRedirectedOriginalStreams());
    Machine::stopConsole();
    EXPECT_EQ(failureOf([&] { machine.getStandardStreamManager(); }),
              "StandardStreamManager is NULL | _standardStreamManager");
}

std::string optionFailure(std::initializer_list<std::string> arguments) {
    test::Argv argv(arguments);
    Machine::ArgumentMap consumed;
    return test::errorOf<OptionError>(
        [&] { Machine::parseCommonArgvs(argv.argc(), argv.argv(), consumed); });
}

TEST(SerialConsole, BadLogDirectoriesAreOptionErrors) {
    const std::string file = test::makeTemporaryDirectory() + "/file";
    test::writeTextFile(file, "");
    EXPECT_EQ(optionFailure({"server", "-slavelogs"}), "Missing -slavelogs arg");
    EXPECT_EQ(optionFailure({"server", "-slavelogs", file + "/logs"}),
              "Cannot create the -slavelogs directory " + file + "/logs: Not a directory");
}

}  // namespace
}  // namespace tolm
