#include <gtest/gtest.h>

#include <vector>

#include "machine/topology/CpuBindingCollisions.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::maskOf;
using Collisions = CpuBindingCollisions;

const AffinityMask available = maskOf({0, 1, 2, 3});

TEST(CpuBindingCollisions, OnlyAProcessThatMayNotRunEverywhereIsPinned) {
    EXPECT_TRUE(Collisions::isPinned(maskOf({2}), available));
    EXPECT_TRUE(Collisions::isPinned(maskOf({0, 1, 2}), available));
    EXPECT_FALSE(Collisions::isPinned(available, available));
    EXPECT_FALSE(Collisions::isPinned(maskOf({0, 1, 2, 3, 7}), available));
    // An affinity that could not be read pins nothing.
    EXPECT_FALSE(Collisions::isPinned(AffinityMask(), available));
}

TEST(CpuBindingCollisions, PinnedProcessesSharingLpusCollide) {
    const auto found = Collisions::find(
        {maskOf({0}), maskOf({1}), maskOf({0, 1}), available, maskOf({3})}, available);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(std::make_pair(found[0].first, found[0].second), std::make_pair(0u, 2u));
    EXPECT_EQ(found[0].shared, maskOf({0}));
    EXPECT_EQ(std::make_pair(found[1].first, found[1].second), std::make_pair(1u, 2u));
    EXPECT_EQ(found[1].shared, maskOf({1}));
    EXPECT_TRUE(Collisions::find({maskOf({0}), maskOf({1}), maskOf({2})}, available).empty());
    EXPECT_TRUE(Collisions::find({available, available, maskOf({2})}, available).empty());
}

TEST(CpuBindingCollisions, PinnedLpusAreTheUnionOfPinnedMasksOnly) {
    EXPECT_EQ(Collisions::pinnedLpus({maskOf({0}), available, maskOf({2, 3})}, available),
              maskOf({0, 2, 3}));
    EXPECT_TRUE(Collisions::pinnedLpus({available}, available).empty());
}

}  // namespace
}  // namespace tolm
