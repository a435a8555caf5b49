// ParallelFile on both MPIs: round trips of random data at sizes around a lowered limit, in
// file order and byte for byte; the individual file pointer after split transfers; the early
// return of writeAt; the layout summary; error texts; a file still open when MPI is finalised.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <type_traits>
#include <vector>

#include "FileTesting.h"
#include "machine/comm/MpiCore.h"
#include "machine/files/ParallelFile.h"
#include "neo/NonRecoverableError.h"
#include "platform/StringHelper.h"

namespace tolm {

// Reaches ParallelFile's private error translation and layout summary.
struct ParallelFileTestAccess {
    static int handleError(int code) { return ParallelFile::handleError(code); }
    static void translatePanfsInfo(int& info, std::map<std::string, std::string>& out) {
        ParallelFile::translatePanfsInfo(info, out);
    }
};

namespace mpitest {
namespace {

constexpr int createWrite = QMX_MPI_MODE_CREATE | QMX_MPI_MODE_WRONLY;

// The block of `count` values of rank `rank`: random, and different for every rank and count.
template <typename T>
std::vector<T> block(unsigned int rank, unsigned int count) {
    std::mt19937 generator(rank * 7919u + count);
    std::vector<T> values(count);
    for (T& value : values) {
        if constexpr (std::is_floating_point_v<T>) {
            value = T(std::uniform_real_distribution<double>(-1e6, 1e6)(generator));
        } else {
            value = T(generator());
        }
    }
    return values;
}

template <typename T>
ParallelFile::ConstView constView(const std::vector<T>& values) {
    return {values.data(), unsigned(values.size()), MpiDatatype<T>::value, sizeof(T)};
}

template <typename T>
ParallelFile::View view(std::vector<T>& values) {
    return {values.data(), unsigned(values.size()), MpiDatatype<T>::value, sizeof(T)};
}

template <typename T>
std::string bytesOf(const std::vector<T>& values) {
    return std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

class ParallelFiles : public testing::Test {
  protected:
    std::wstring file(const std::string& name) const {
        return StringHelper::decode(_dir.path() + "/" + name);
    }
    std::string master(const std::string& name) const {
        return readTextFile(_dir.path() + "/" + name);
    }

    // One file per type holds a region per count, one after the other; in each, every rank
    // writes its block with writeAtAll. The master finds the blocks in rank order, byte for
    // byte; every rank reads its neighbour's blocks back with readAtAll.
    template <typename T>
    void collectiveRoundTrips(const std::vector<unsigned int>& counts) {
        const std::string name = "type-" + std::to_string(sizeof(T));
        const auto blockAt = [&](std::int64_t region, unsigned int rank, unsigned int count) {
            return region + std::int64_t(rank * count * sizeof(T));
        };
        std::string expected;
        {
            ParallelFile out(world(), file(name), createWrite);
            for (unsigned int count : counts) {
                const auto region = std::int64_t(expected.size());
                out.writeAtAll(blockAt(region, _rank, count), constView(block<T>(_rank, count)));
                for (unsigned int r = 0; r < world().size(); ++r)
                    expected += bytesOf(block<T>(r, count));
            }
        }
        if (_rank == 0) {
            EXPECT_TRUE(master(name) == expected) << "blocks of " << sizeof(T) << " bytes";
        }
        ParallelFile in(world(), file(name), QMX_MPI_MODE_RDONLY);
        const unsigned int neighbour = (_rank + 1) % world().size();
        std::int64_t region = 0;
        for (unsigned int count : counts) {
            std::vector<T> back(count);
            in.readAtAll(blockAt(region, neighbour, count), view(back));
            EXPECT_EQ(back, block<T>(neighbour, count)) << count << " values of " << sizeof(T);
            region += std::int64_t(world().size() * count * sizeof(T));
        }
    }

    const unsigned int _rank = world().myRank();
    JobDirectory _dir;
};

TEST_F(ParallelFiles, CollectiveRoundTripsAroundALoweredLimitKeepFileOrder) {
    LoweredLimit lowered(16);  // 2 doubles, 4 ints, 16 chars
    const std::vector<unsigned int> counts{0, 1, 2, 3, 4, 5, 7, 16, 17, 33};
    collectiveRoundTrips<double>(counts);
    collectiveRoundTrips<int>(counts);
    collectiveRoundTrips<char>(counts);
}

TEST_F(ParallelFiles, IndependentTransfersSplitAtTheirOwnPlaces) {
    LoweredLimit lowered(16);
    const auto mine = block<double>(_rank, 9);
    const auto head = block<double>(100, 5);
    const auto tail = block<double>(101, 4);
    {
        ParallelFile out(world(), file("at"), createWrite);
        EXPECT_EQ(out.writeAt(_rank * 72, constView(mine)), 0);
        ParallelFile pointer(world(), file("pointer"), createWrite);
        if (_rank == 0) {  // the master's own file pointer moves on piece by piece
            pointer.write(constView(head));
            pointer.write(constView(tail));
        }
        EXPECT_EQ(pointer.tell(), _rank == 0 ? 72 : 0);
    }
    ParallelFile at(world(), file("at"), QMX_MPI_MODE_RDONLY);
    EXPECT_EQ(at.getFileSize(), 72u * world().size());
    const unsigned int neighbour = (_rank + 1) % world().size();
    std::vector<double> back(9);
    at.readAt(neighbour * 72, view(back));
    EXPECT_EQ(back, block<double>(neighbour, 9));
    ParallelFile pointer(world(), file("pointer"), QMX_MPI_MODE_RDONLY);
    if (_rank == 0) {
        EXPECT_TRUE(master("pointer") == bytesOf(head) + bytesOf(tail));
        std::vector<double> all(9);
        pointer.read(view(all));
        EXPECT_TRUE(bytesOf(all) == bytesOf(head) + bytesOf(tail));
        EXPECT_EQ(pointer.tell(), 72);
    }
}

TEST_F(ParallelFiles, WriteAtStopsAtTheFirstPieceThatFails) {
    if (MpiCore::getDistribName() == "Open MPI")
        GTEST_SKIP() << "Open MPI 4.1 reports success for a write at a negative offset";
    LoweredLimit lowered(8);
    ParallelFile out(world(), file("negative"), createWrite);
    const std::vector<int> values{1, 2, 3, 4};
    const int code = out.writeAt(-8, constView(values));  // the second half would land at 0
    EXPECT_EQ(code & 0x7f, QMX_MPI_ERR_ARG);
    EXPECT_EQ(out.getFileSize(), 0u);
}

TEST_F(ParallelFiles, LayoutSummaryShowsThePanfsHintsAnMpiKeeps) {
    ParallelFile out(world(), file("layout"), createWrite);
    std::map<std::string, std::string> summary{{"kept", "as it was"}};
    out.getInfo(summary);
    if (MpiCore::getDistribName() == "Open MPI") {  // hands back the hints given at the open
        EXPECT_EQ(summary, (std::map<std::string, std::string>{{"alignment_size", "524288"},
                                                               {"kept", "as it was"},
                                                               {"layout_type", "RAID5"},
                                                               {"number_comp", "128"},
                                                               {"raid5_depth", "1"},
                                                               {"raid5_width", "9"},
                                                               {"stripe_unit", "65536"}}));
    } else {
        EXPECT_EQ(summary, (std::map<std::string, std::string>{{"kept", "as it was"}}));
    }
}

std::map<std::string, std::string> layoutOf(const std::map<std::string, std::string>& keys) {
    int info = QMX_MPI_INFO_NULL;
    EXPECT_EQ(QMX_MPI_Info_create(&info), 0);
    for (const auto& [key, value] : keys)
        EXPECT_EQ(QMX_MPI_Info_set(info, key.c_str(), value.c_str()), 0);
    std::map<std::string, std::string> out{{"layout_type", "before"}, {"raid5_width", "before"}};
    ParallelFileTestAccess::translatePanfsInfo(info, out);
    QMX_MPI_Info_free(&info);
    return out;
}

TEST(PanfsLayout, EachLayoutTypeIsNamedAndRaid5IsMeasured) {
    using Map = std::map<std::string, std::string>;
    const Map untouched{{"layout_type", "before"}, {"raid5_width", "before"}};
    EXPECT_EQ(layoutOf({{"striping_unit", "4096"}}), untouched);
    EXPECT_EQ(layoutOf({{"panfs_layout_type", "2"}, {"panfs_layout_stripe_unit", "4096"}}),
              (Map{{"layout_type", "RAID0"},
                   {"number_comp", ""},
                   {"raid5_width", "before"},
                   {"stripe_unit", "4096"}}));
    EXPECT_EQ(layoutOf({{"panfs_layout_type", "4"}})["layout_type"], "RAID10");
    EXPECT_EQ(layoutOf({{"panfs_layout_type", "9"}, {"panfs_layout_total_num_comps", "3"}}),
              (Map{{"layout_type", "before"},
                   {"number_comp", "3"},
                   {"raid5_width", "before"},
                   {"stripe_unit", ""}}));
    // The parity stripe is no wider than the components there are.
    EXPECT_EQ(layoutOf({{"panfs_layout_type", "3"},
                        {"panfs_layout_stripe_unit", "4096"},
                        {"panfs_layout_total_num_comps", "8"},
                        {"panfs_layout_parity_stripe_width", "12"},
                        {"panfs_layout_parity_stripe_depth", "2"}}),
              (Map{{"alignment_size", "28672"},
                   {"layout_type", "RAID5"},
                   {"number_comp", "8"},
                   {"raid5_depth", "2"},
                   {"raid5_width", "8"},
                   {"stripe_unit", "4096"}}));
}

std::string nonRecoverableMessage(int code) {
    try {
        ParallelFileTestAccess::handleError(code);
    } catch (const NonRecoverableError& error) {
        return error.getMessage();
    }
    return "no failure";
}

TEST(ParallelFileErrors, TextsAndTheWrapperCodesThatEndTheJob) {
    EXPECT_EQ(ParallelFile::getErrorStr(QMX_MPI_ERR_UNKNOWN),
              MpiCore::errorString(QMX_MPI_ERR_UNKNOWN) + ". Possibly out of disk space. ");
    EXPECT_EQ(ParallelFile::getErrorStr(QMX_MPI_ERR_IO), MpiCore::errorString(QMX_MPI_ERR_IO));
    EXPECT_EQ(ParallelFileTestAccess::handleError(QMX_MPI_ERR_IO), QMX_MPI_ERR_IO);
    EXPECT_EQ(nonRecoverableMessage(0x40000006),
              "Parallel IO is not supported with this MPI Distribution");
    EXPECT_EQ(nonRecoverableMessage(0x40000005),
              "Error accessing MPI function that is not supported");
}

TEST_F(ParallelFiles, AFailedOpenAnswersFalseAndKeepsMpisCode) {
    ParallelFile missing;
    EXPECT_FALSE(missing.open(world(), file("no-such-dir/field"), QMX_MPI_MODE_RDONLY));
    EXPECT_EQ(missing.openError() & 0x7f, QMX_MPI_ERR_NO_SUCH_FILE);
    EXPECT_EQ(&missing.communicator(), &world());
    ParallelFile readOnly(world(), file("read-only"), createWrite);
    readOnly.close();
    ASSERT_TRUE(readOnly.open(world(), file("read-only"), QMX_MPI_MODE_RDONLY));
    const std::vector<int> values{int(_rank)};
    EXPECT_NE(readOnly.writeAt(0, constView(values)), 0);
}

TEST_F(ParallelFiles, AFileStillOpenIsClosedWhenMpiIsFinalised) {
    auto& finalization = MpiCore::getOnFinalizationObservable();
    ASSERT_EQ(finalization.size(), 0u) << "other holders of MPI objects would be told as well";
    ParallelFile out(world(), file("left-open"), createWrite);
    ASSERT_TRUE(out.isOpen());
    EXPECT_EQ(finalization.size(), 1u);
    finalization.notify();  // what MpiCore::finalize does before MPI ends
    EXPECT_FALSE(out.isOpen());
    EXPECT_EQ(finalization.size(), 0u);
}

}  // namespace
}  // namespace mpitest
}  // namespace tolm
