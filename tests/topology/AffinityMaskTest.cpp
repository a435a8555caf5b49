#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "machine/topology/AffinityMask.h"
#include "topology/TopologyTestSupport.h"

namespace tolm {
namespace {

using test::lpusOf;
using test::maskOf;

TEST(AffinityMask, SetOperationsCombineWithoutTouchingTheirArguments) {
    const AffinityMask a = maskOf({0, 2, 5});
    const AffinityMask b = maskOf({2, 3});
    EXPECT_EQ(lpusOf(a & b), (std::vector<unsigned>{2}));
    EXPECT_EQ(lpusOf(a | b), (std::vector<unsigned>{0, 2, 3, 5}));
    EXPECT_EQ(lpusOf(a ^ b), (std::vector<unsigned>{0, 3, 5}));
    EXPECT_EQ(lpusOf(a), (std::vector<unsigned>{0, 2, 5}));
    EXPECT_EQ(lpusOf(b), (std::vector<unsigned>{2, 3}));

    AffinityMask c = a;
    EXPECT_EQ(&(c &= b), &c);
    EXPECT_EQ(c, maskOf({2}));
    EXPECT_EQ(&(c |= b), &c);
    EXPECT_EQ(c, b);
    EXPECT_EQ(&(c ^= a), &c);
    EXPECT_EQ(c, maskOf({0, 3, 5}));
    c.unset(3).unset(4);
    EXPECT_EQ(c, maskOf({0, 5}));
    c.clear();
    EXPECT_TRUE(c.empty());
}

TEST(AffinityMask, InclusionAndIntersection) {
    const AffinityMask a = maskOf({1, 2});
    const AffinityMask empty;
    EXPECT_TRUE(a.isIncludedIn(a));
    EXPECT_TRUE(a.isIncludedIn(maskOf({0, 1, 2})));
    EXPECT_FALSE(maskOf({0, 1, 2}).isIncludedIn(a));
    EXPECT_TRUE(empty.isIncludedIn(a));
    EXPECT_TRUE(empty.isIncludedIn(empty));
    EXPECT_FALSE(a.isIncludedIn(empty));

    EXPECT_TRUE(a.intersectsWith(maskOf({2, 9})));
    EXPECT_FALSE(a.intersectsWith(maskOf({0, 3})));
    EXPECT_FALSE(empty.intersectsWith(a));
    EXPECT_FALSE(a.intersectsWith(empty));
}

TEST(AffinityMask, CopiesAreDeepAndMovesAndSwapsHandOver) {
    AffinityMask original = maskOf({1, 70});
    AffinityMask copy(original);
    copy.set(3);
    EXPECT_EQ(lpusOf(original), (std::vector<unsigned>{1, 70}));

    AffinityMask assigned = maskOf({9});
    assigned = original;
    original.unset(70);
    EXPECT_EQ(lpusOf(assigned), (std::vector<unsigned>{1, 70}));
    assigned = static_cast<const AffinityMask&>(assigned);
    EXPECT_EQ(lpusOf(assigned), (std::vector<unsigned>{1, 70}));

    AffinityMask moved(std::move(copy));
    EXPECT_EQ(lpusOf(moved), (std::vector<unsigned>{1, 3, 70}));
    // A moved-from mask takes a new value by either kind of assignment.
    copy = original;
    EXPECT_EQ(copy, original);
    AffinityMask movedAgain(std::move(copy));
    copy = maskOf({4});
    EXPECT_EQ(lpusOf(copy), (std::vector<unsigned>{4}));

    moved = std::move(movedAgain);
    EXPECT_EQ(moved, original);
    moved.swap(copy);
    EXPECT_EQ(moved, maskOf({4}));
    EXPECT_EQ(copy, original);
}

TEST(AffinityMask, IterationVisitsSetLpusInIncreasingOrder) {
    const AffinityMask none;
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.count(), 0u);
    EXPECT_EQ(none.begin(), none.end());
    EXPECT_TRUE(none == AffinityMask());
    EXPECT_FALSE(none != AffinityMask());
    EXPECT_NE(none, maskOf({0}));
    const AffinityMask mask = maskOf({200, 0, 64, 63, 1});
    EXPECT_EQ(lpusOf(mask), (std::vector<unsigned>{0, 1, 63, 64, 200}));
    EXPECT_EQ(mask.count(), 5u);
    EXPECT_TRUE(mask.isSet(64));
    EXPECT_FALSE(mask.isSet(65));
    auto it = mask.begin();
    EXPECT_EQ(*it++, 0u);
    EXPECT_EQ(*it, 1u);
}

TEST(AffinityMask, BinaryTextIsMostSignificantLpuFirstAndWidthIsAMinimum) {
    EXPECT_EQ(maskOf({0, 2}).toBinaryString(8), "0b00000101");
    EXPECT_EQ(maskOf({0, 2}).toBinaryString(0), "0b101");
    EXPECT_EQ(maskOf({0, 2}).toBinaryString(2), "0b101");
    EXPECT_EQ(maskOf({40}).toBinaryString(8), "0b1" + std::string(40, '0'));
    EXPECT_EQ(AffinityMask().toBinaryString(0), "0b0");
    EXPECT_EQ(AffinityMask().toBinaryString(1), "0b0");
    EXPECT_EQ(AffinityMask().toBinaryString(5), "0b00000");
}

TEST(AffinityMask, HexTextGroupsFourLpusPerDigitAndWidthIsAMinimum) {
    EXPECT_EQ(maskOf({0, 5}).toHexString(0), "0x21");
    EXPECT_EQ(maskOf({0, 5}).toHexString(4), "0x0021");
    EXPECT_EQ(maskOf({3}).toHexString(0), "0x8");
    EXPECT_EQ(maskOf({4}).toHexString(0), "0x10");
    EXPECT_EQ(maskOf({0, 1, 2, 3, 6, 7}).toHexString(1), "0xcf");
    EXPECT_EQ(maskOf({40}).toHexString(8), "0x1" + std::string(10, '0'));
    EXPECT_EQ(AffinityMask().toHexString(0), "0x0");
    EXPECT_EQ(AffinityMask().toHexString(3), "0x000");
}

}  // namespace
}  // namespace tolm
