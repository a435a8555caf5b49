#include <gtest/gtest.h>

#include <numeric>

#include "CommunicatorTesting.h"
#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

using mpitest::CallCounter;
using mpitest::failureOf;
using mpitest::LoweredLimit;
using mpitest::world;

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
    LoweredLimit huge(std::uint64_t(1) << 40);
    EXPECT_TRUE(world().exceedsSizeLimits(2147483648ull, 1));
    EXPECT_FALSE(world().exceedsSizeLimits(2147483647ull, 1));
}

// 250 ints are the limit's 1000 bytes: one call. 251 are split, into 125 and 126.
TEST(Communicator, BroadcastOfExactlyTheLimitIsOneCallMoreIsSplitInHalves) {
    LoweredLimit limit(1000);
    for (const int count : {250, 251}) {
        std::vector<int> expected(static_cast<std::size_t>(count));
        std::iota(expected.begin(), expected.end(), 1000);
        const unsigned int root = world().size() - 1;
        auto values = world().myRank() == root ? expected : std::vector<int>(expected.size(), -1);
        CallCounter counter;
        world().broadcast(values.data(), values.size(), root);
        EXPECT_EQ(counter.calls["Communicator::Broadcast"], count == 250 ? 1 : 2) << count;
        EXPECT_EQ(counter.bytes["Communicator::Broadcast"], count * sizeof(int));
        EXPECT_EQ(values, expected) << count << " ints";
    }
    CallCounter none;
    world().broadcast(static_cast<int*>(nullptr), 0, 0);
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

}  // namespace
}  // namespace tolm
