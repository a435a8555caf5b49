// ParallelFile and InputFileStream beside what they stand for, measured in the same run:
// collective MPI-IO through ParallelFile against the same calls on native MPI (also with a
// lowered message limit, which cuts every transfer into halves), and a text file read by
// InputFileStream with broadcast against the master reading it alone.
//
// Run with 4 ranks: tolm-mpi-launch DRIVER 4 tolm-files-bench-DRIVER [MiB per rank (256)]
// [MiB of text (100)]. Files go to $TMPDIR (else /tmp) and are deleted afterwards. With the
// memory to keep them in the page cache, the figures are the cost of the layers, not of the
// disk. Each case is timed in rounds after a warm-up, the sides taking turns; the table shows
// each side's best round, since load elsewhere only ever adds time, and the ratios of the
// best rounds (above 1: ParallelFile or the broadcast was faster).
#include <mpi.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/files/InputFileStream.h"
#include "machine/core/Machine.h"
#include "machine/comm/MpiCore.h"
#include "machine/files/ParallelFile.h"
#include "machine/files/StreamRedirector.h"
#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"

namespace {

using namespace tolm;

constexpr int fileRounds = 5;
// Broadcasts on an oversubscribed machine can be slow: fewer rounds for the text.
constexpr int textRounds = 3;
constexpr std::uint64_t mebibyte = 1 << 20;

int rank = 0;

double seconds(const std::function<void()>& run) {
    MPI_Barrier(MPI_COMM_WORLD);
    const double start = MPI_Wtime();
    run();
    MPI_Barrier(MPI_COMM_WORLD);
    return MPI_Wtime() - start;
}

// Each side's best round: one warm-up round of every side, then `rounds` rounds in which the
// sides take turns, each round starting with the next side, so that none always follows the
// same one (the page cache's write-back of one side's data would fall on the next).
std::vector<double> best(const std::vector<std::function<void()>>& sides, int rounds = fileRounds) {
    for (const auto& side : sides)
        side();
    std::vector<double> times(sides.size(), 1e300);
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t turn = 0; turn < sides.size(); ++turn) {
            const std::size_t i = (turn + std::size_t(round)) % sides.size();
            times[i] = std::min(times[i], seconds(sides[i]));
        }
    }
    return times;
}

// One row: each side's rate (`amount` per second), then the last side's rate over each of the
// others'.
void printRow(const std::string& name, double amount, const std::vector<double>& times) {
    if (rank != 0)
        return;
    std::printf("%-28s", name.c_str());
    for (const double time : times)
        std::printf(" %13.2f", amount / time);
    for (std::size_t i = 0; i + 1 < times.size(); ++i)
        std::printf(" %13.3f", times[i] / times.back());
    std::printf("\n");
    std::fflush(stdout);
}

void printHeader(const std::string& title, const std::vector<const char*>& columns) {
    if (rank != 0)
        return;
    std::printf("\n%-28s", title.c_str());
    for (const char* column : columns)
        std::printf(" %13s", column);
    std::printf("\n");
}

// Rank `r`'s bytes: a pattern that differs by rank and position.
std::vector<char> blockOf(int r, std::uint64_t bytes) {
    std::vector<char> block(bytes);
    for (std::uint64_t i = 0; i < bytes; ++i)
        block[i] = char((i * 131 + std::uint64_t(r) * 7) >> 3);
    return block;
}

// Native MPI-IO on one rank's block, in one call or in `pieces` calls.
class NativeFile {
  public:
    NativeFile(const std::string& path, std::vector<char>& block)
        : _block(block), _offset(MPI_Offset(rank) * MPI_Offset(block.size())) {
        MPI_File_open(MPI_COMM_WORLD, path.c_str(), MPI_MODE_CREATE | MPI_MODE_RDWR, MPI_INFO_NULL,
                      &_file);
    }
    ~NativeFile() { MPI_File_close(&_file); }
    void writeAll(int pieces) { transfer(pieces, MPI_File_write_at_all); }
    void readAll(int pieces) { transfer(pieces, MPI_File_read_at_all); }

  private:
    template <typename Call>
    void transfer(int pieces, Call call) {
        const std::uint64_t piece = _block.size() / std::uint64_t(pieces);
        for (int p = 0; p < pieces; ++p) {
            call(_file, _offset + MPI_Offset(p * piece), _block.data() + p * piece, int(piece),
                 MPI_BYTE, MPI_STATUS_IGNORE);
        }
    }

    std::vector<char>& _block;
    MPI_Offset _offset;
    MPI_File _file;
};

void parallelFileCases(Communicator& world, const std::string& path, std::uint64_t bytes) {
    std::vector<char> block = blockOf(rank, bytes);
    NativeFile native(path, block);
    ParallelFile layer(world, StringHelper::decode(path), QMX_MPI_MODE_CREATE | QMX_MPI_MODE_RDWR);
    const std::int64_t offset = std::int64_t(rank) * std::int64_t(bytes);
    const ParallelFile::ConstView out{block.data(), unsigned(bytes), QMX_MPI_BYTE, 1};
    const ParallelFile::View in{block.data(), unsigned(bytes), QMX_MPI_BYTE, 1};
    const double gib = double(bytes) * world.size() / double(1 << 30);
    const auto write = [&] { layer.writeAtAll(offset, out); };
    const auto read = [&] { layer.readAtAll(offset, in); };

    printHeader("ParallelFile (GiB/s)", {"native", "ParallelFile", "ratio"});
    printRow("writeAtAll", gib, best({[&] { native.writeAll(1); }, write}));
    printRow("readAtAll", gib, best({[&] { native.readAll(1); }, read}));

    constexpr int pieces = 4;
    const std::uint64_t limit = bytes / pieces;
    {
        // The change is announced on every rank; the table does without it.
        StreamRedirector quiet(stdout, Platform::filesystem().nullDevicePath());
        world.setMaxBufferSize(limit);
        std::fflush(stdout);
    }
    printHeader("Limit " + std::to_string(limit / mebibyte) + " MiB (GiB/s)",
                {"native 1 call", "native pieces", "ParallelFile", "ratio 1 call", "ratio pieces"});
    printRow("writeAtAll in 4 pieces", gib,
             best({[&] { native.writeAll(1); }, [&] { native.writeAll(pieces); }, write}));
    printRow("readAtAll in 4 pieces", gib,
             best({[&] { native.readAll(1); }, [&] { native.readAll(pieces); }, read}));
    layer.close();
    if (block != blockOf(rank, bytes))
        std::fprintf(stderr, "rank %d read back other bytes than it wrote\n", rank);
}

std::string writeText(const std::string& path, std::uint64_t bytes) {
    if (rank == 0) {
        std::ofstream text(path, std::ios::binary);
        char line[96];
        for (std::uint64_t written = 0, n = 0; written < bytes; ++n) {
            const int length = std::snprintf(
                line, sizeof line, "line %09llu: the quick brown fox jumps over 3.14159 %llu\n",
                static_cast<unsigned long long>(n), static_cast<unsigned long long>(n * 7));
            text.write(line, length);
            written += std::uint64_t(length);
        }
    }
    MPI_Barrier(MPI_COMM_WORLD);
    return path;
}

// Reads the whole file in blocks of `block` bytes; the last byte of every block goes into
// the checksum, so that no process may skip its copy.
unsigned long readBlocks(IStreamWrapper& in, std::uint64_t block) {
    std::vector<char> buffer(block);
    unsigned long sum = 0;
    for (;;) {
        in.read(buffer.data(), std::int64_t(block));
        const std::int64_t got = in.gcount();
        if (got > 0)
            sum = sum * 31 + static_cast<unsigned char>(buffer[std::size_t(got - 1)]);
        if (got < std::int64_t(block))
            return sum;
    }
}

unsigned long readLines(IStreamWrapper& in, int lines) {
    char line[256];
    unsigned long sum = 0;
    for (int n = 0; n < lines && in.getline(line, sizeof line); ++n)
        sum = sum * 31 + static_cast<unsigned char>(line[5]);
    return sum;
}

void inputStreamCases(const std::string& path, std::uint64_t bytes) {
    unsigned long alone = 0, shared = 0;
    using Read = std::function<unsigned long(IStreamWrapper&)>;
    const auto masterAlone = [&](const Read& read) {
        if (rank != 0)
            return;
        std::ifstream file(path, std::ios::binary);
        IStreamWrapper in(file);
        alone = read(in);
    };
    const auto broadcast = [&](const Read& read) {
        InputFileStream in;
        in.setBroadcastFlag(true);
        in.open(path.c_str());
        shared = read(in);
    };
    const Read blocks = [](IStreamWrapper& in) { return readBlocks(in, mebibyte); };
    constexpr int lines = 2000;
    const Read someLines = [](IStreamWrapper& in) { return readLines(in, lines); };

    printHeader("InputFileStream, " + std::to_string(bytes / mebibyte) + " MiB text",
                {"master alone", "broadcast", "ratio"});
    printRow("1 MiB blocks (MiB/s)", double(bytes) / double(mebibyte),
             best({[&] { masterAlone(blocks); }, [&] { broadcast(blocks); }}, textRounds));
    printRow("first 2000 lines (lines/ms)", lines / 1e3,
             best({[&] { masterAlone(someLines); }, [&] { broadcast(someLines); }}, textRounds));
    unsigned long masters = shared;
    MPI_Bcast(&masters, 1, MPI_UNSIGNED_LONG, 0, MPI_COMM_WORLD);
    if (shared != masters || (rank == 0 && alone != shared))
        std::fprintf(stderr, "rank %d read other text than the master\n", rank);
}

}  // namespace

int main(int argc, char** argv) {
    std::string mpi = "-mpi", driver = TOLM_BENCH_DRIVER;
    std::vector<char*> machineArgv{argv[0], mpi.data(), driver.data(), nullptr};
    Machine::ArgumentMap consumed;
    Machine::startCommunicators(3, machineArgv.data(), consumed);
    Communicator& world = *Machine::globalCommunicator();
    rank = int(world.myRank());
    const std::uint64_t perRank = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 256) * mebibyte;
    const std::uint64_t text = (argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 100) * mebibyte;
    std::string base = Platform::filesystem().temporaryDirectory() + "/tolm-files-bench-";
    int pid = int(::getpid());
    MPI_Bcast(&pid, 1, MPI_INT, 0, MPI_COMM_WORLD);
    base += std::to_string(pid);

    if (rank == 0) {
        std::printf("%s, %u ranks, %.2f GiB in all; files in %s\n",
                    MpiCore::getDistribName().c_str(), world.size(),
                    double(perRank) * world.size() / double(1 << 30), base.c_str());
    }
    parallelFileCases(world, base + ".bin", perRank);
    inputStreamCases(writeText(base + ".txt", text), text);
    MPI_Barrier(MPI_COMM_WORLD);
    if (rank == 0) {
        std::remove((base + ".bin").c_str());
        std::remove((base + ".txt").c_str());
    }
    Machine::stopCommunicators();
    return 0;
}
