#include <gtest/gtest.h>

#include <numeric>

#include "CommunicatorTesting.h"
#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/core/SerialCritical.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

using mpitest::CallCounter;
using mpitest::failureOf;
using mpitest::LoweredLimit;
using mpitest::world;

TEST(Communicator, WorldIdentity) {
    int size = 0, rank = -1;
    QMX_MPI_Comm_size(QMX_MPI_COMM_WORLD, &size);
    QMX_MPI_Comm_rank(QMX_MPI_COMM_WORLD, &rank);
    EXPECT_EQ(world().size(), unsigned(size));
    EXPECT_EQ(world().myRank(), unsigned(rank));
    EXPECT_EQ(world().size(), Machine::nProcesses());
    EXPECT_FALSE(world().myName().empty());
    EXPECT_EQ(Communicator::masterRank(), 0u);
    EXPECT_EQ(world().getMaxBufferSize(), QMX_MPI_Get_max_buffer_size());
}

TEST(Communicator, CreateCommunicatorKeepsTheGivenOrder) {
    std::vector<unsigned int> reversed(world().size());
    std::iota(reversed.rbegin(), reversed.rend(), 0u);
    auto sub = world().createCommunicator(reversed);
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(sub->myRank(), world().size() - 1 - world().myRank());
    EXPECT_FALSE(*sub == world());

    EXPECT_EQ(world().createCommunicator({}), nullptr);

    auto evens = world().createCommunicator({0});
    EXPECT_EQ(evens != nullptr, world().myRank() == 0);
}

TEST(Communicator, CreateCommunicatorChecksRanksFirst) {
    const unsigned int size = world().size();
    EXPECT_EQ(
        failureOf([&] { world().createCommunicator(std::vector<unsigned int>(size + 1, 0)); }),
        "Invalid number of ranks | ranks.size() <= size");
    EXPECT_EQ(failureOf([&] { world().createCommunicator({size}); }),
              "Rank exceeds old communicator in createCommunicator() | ranks[i] < size");
}

TEST(Communicator, SetMaxBufferSizeAlwaysWarns) {
    const std::uint64_t limit = world().getMaxBufferSize();
    testing::internal::CaptureStdout();
    world().setMaxBufferSize(limit);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Warning, modifying the maximum message size from " + std::to_string(limit) + " to " +
                  std::to_string(limit) + "\n");
}

TEST(Communicator, SizeLimits) {
    LoweredLimit limit(1000);
    EXPECT_FALSE(world().exceedsSizeLimits(250, 4));
    EXPECT_TRUE(world().exceedsSizeLimits(251, 4));
    EXPECT_TRUE(world().exceedsSizeLimits(1001, 1));
    LoweredLimit huge(std::uint64_t(1) << 40);
    EXPECT_TRUE(world().exceedsSizeLimits(2147483648ull, 1));
    EXPECT_FALSE(world().exceedsSizeLimits(2147483647ull, 1));
}

TEST(Communicator, BroadcastOfExactlyTheLimitIsOneCallOneByteMoreIsTwo) {
    LoweredLimit limit(1000);
    for (const std::size_t bytes : {std::size_t(1000), std::size_t(1001)}) {
        std::vector<unsigned char> expected(bytes);
        for (std::size_t i = 0; i < bytes; ++i)
            expected[i] = static_cast<unsigned char>(i * 7 + 3);
        const unsigned int root = world().size() - 1;
        auto data = world().myRank() == root ? expected : std::vector<unsigned char>(bytes);
        CallCounter counter;
        world().broadcast(data.data(), data.size(), root);
        EXPECT_EQ(counter.calls["Communicator::Broadcast"], bytes == 1000 ? 1 : 2) << bytes;
        EXPECT_EQ(counter.bytes["Communicator::Broadcast"], bytes);
        EXPECT_EQ(data, expected) << bytes << " bytes";
    }
}

TEST(Communicator, OddCountsSplitIntoHalfAndHalfPlusOne) {
    LoweredLimit limit(1000);
    std::vector<int> expected(251);  // 1004 bytes: 125 then 126 elements
    std::iota(expected.begin(), expected.end(), 1000);
    auto values = world().myRank() == 0 ? expected : std::vector<int>(251, -1);
    CallCounter counter;
    world().broadcast(values.data(), values.size(), 0);
    EXPECT_EQ(counter.calls["Communicator::Broadcast"], 2);
    EXPECT_EQ(values, expected);

    CallCounter none;
    world().broadcast(values.data(), 0, 0);
    EXPECT_TRUE(none.calls.empty()) << "an empty message makes no MPI call";
}

TEST(Communicator, OneElementLargerThanTheLimitIsRefused) {
    LoweredLimit limit(4);
    double value = 1.0;
    EXPECT_EQ(failureOf([&] { world().broadcast(&value, 1, 0); }),
              "An oversized communication message has been detected.\n"
              "Message count = 1\n"
              "Message size = 8\n"
              "Max count = 2147483647.\n"
              "Oversized messages may imply too few parallel processes are being used. | "
              "!exceedsSizeLimits(count, elementSize)");
}

TEST(Communicator, BroadcastOfStringsAndVectors) {
    const bool root = world().myRank() == 0;
    std::vector<std::string> texts;
    if (root)
        texts = {"alpha", "", "gamma \xC3\xA9"};
    world().broadcast(texts, 0);
    EXPECT_EQ(texts, (std::vector<std::string>{"alpha", "", "gamma \xC3\xA9"}));

    std::vector<double> values;
    if (root)
        values = {1.5, -2.5};
    world().broadcast(values, 0);
    EXPECT_EQ(values, (std::vector<double>{1.5, -2.5}));
}

TEST(Communicator, LockedOutCommunicationFailsBeforeMpi) {
    Machine::SerialCritical serial;
    EXPECT_EQ(failureOf([] { world().synchronise(); }),
              "Parallel is explicitly locked | ! _serialCriticalLock");
}

}  // namespace
}  // namespace tolm
