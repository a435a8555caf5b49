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
    EXPECT_EQ(a & b, maskOf({2}));
    EXPECT_EQ(a | b, maskOf({0, 2, 3, 5}));
    EXPECT_EQ(a ^ b, maskOf({0, 3, 5}));
    EXPECT_EQ(a, maskOf({0, 2, 5}));
    EXPECT_EQ(b, maskOf({2, 3}));

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
    struct Case {
        AffinityMask a, b;
        bool included, intersects;
    };
    const AffinityMask oneTwo = maskOf({1, 2});
    const Case cases[] = {{oneTwo, oneTwo, true, true},
                          {oneTwo, maskOf({0, 1, 2}), true, true},
                          {maskOf({0, 1, 2}), oneTwo, false, true},
                          {oneTwo, maskOf({2, 9}), false, true},
                          {oneTwo, maskOf({0, 3}), false, false},
                          {AffinityMask(), oneTwo, true, false},
                          {AffinityMask(), AffinityMask(), true, false},
                          {oneTwo, AffinityMask(), false, false}};
    for (const Case& c : cases) {
        EXPECT_EQ(c.a.isIncludedIn(c.b), c.included) << c.a.toHexString(0) << c.b.toHexString(0);
        EXPECT_EQ(c.a.intersectsWith(c.b), c.intersects)
            << c.a.toHexString(0) << c.b.toHexString(0);
    }
}

TEST(AffinityMask, CopiesAreDeepAndMovesAndSwapsHandOver) {
    AffinityMask original = maskOf({1, 70});
    AffinityMask copy(original);
    copy.set(3);
    AffinityMask assigned = maskOf({9});
    assigned = original;
    original.unset(70);
    assigned = static_cast<const AffinityMask&>(assigned);
    EXPECT_EQ(assigned, maskOf({1, 70}));

    AffinityMask moved(std::move(copy));
    EXPECT_EQ(moved, maskOf({1, 3, 70}));
    // A moved-from mask takes a new value by either kind of assignment.
    copy = original;
    EXPECT_EQ(copy, original);
    AffinityMask movedAgain(std::move(copy));
    copy = maskOf({4});
    moved = std::move(movedAgain);
    EXPECT_EQ(moved, original);
    moved.swap(copy);
    EXPECT_EQ(moved, maskOf({4}));
    EXPECT_EQ(copy, original);
}

TEST(AffinityMask, IterationVisitsSetLpusInIncreasingOrder) {
    const AffinityMask none;
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
}

// Most significant LPU first; the width is a minimum number of digits.
TEST(AffinityMask, TextsInBinaryAndHex) {
    struct Case {
        AffinityMask mask;
        unsigned width;
        std::string binary, hex;
    };
    const Case cases[] = {
        {maskOf({0, 2}), 8, "0b00000101", "0x00000005"},
        {maskOf({0, 2}), 0, "0b101", "0x5"},
        {maskOf({0, 2}), 2, "0b101", "0x05"},
        {maskOf({0, 5}), 4, "0b100001", "0x0021"},
        {maskOf({3}), 0, "0b1000", "0x8"},
        {maskOf({4}), 0, "0b10000", "0x10"},
        {maskOf({0, 1, 2, 3, 6, 7}), 1, "0b11001111", "0xcf"},
        {maskOf({40}), 8, "0b1" + std::string(40, '0'), "0x1" + std::string(10, '0')},
        {AffinityMask(), 0, "0b0", "0x0"},
        {AffinityMask(), 1, "0b0", "0x0"},
        {AffinityMask(), 5, "0b00000", "0x00000"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.mask.toBinaryString(c.width), c.binary) << c.width;
        EXPECT_EQ(c.mask.toHexString(c.width), c.hex) << c.width;
    }
}

}  // namespace
}  // namespace tolm
