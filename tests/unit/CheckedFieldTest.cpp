// Numeric command fields: every value of the wrong type or outside the range is refused with
// the field's name and range, and nothing wraps or is cut on its way to a narrower type.
#include <gtest/gtest.h>

#include <cstdint>

#include "neo/CheckedField.h"
#include "neo/Error.h"
#include "support/Failure.h"

namespace tolm {
namespace {

Properties withField(const std::string& valueText) {
    return Properties("{\"f\":" + valueText + "}");
}

TEST(CheckedField, IntegersOutsideTheRangeOrOfAnotherTypeAreRefused) {
    for (const char* text : {"-1", "0", "2.5", "8193", "4294967297", "18446744073709551615",
                             "-9223372036854775808", "1e30", "\"12\"", "true", "null", "[1]"}) {
        EXPECT_EQ(test::errorOf<Error>(
                      [&] { CheckedField::integer(withField(text), "f", 1u, 8192u); }),
                  "\"f\" must be an integer in 1..8192")
            << text;
    }
    EXPECT_EQ(CheckedField::integer(withField("8192"), "f", 1u, 8192u), 8192u);
    EXPECT_EQ(CheckedField::integer(withField("-3"), "f", -5, 5), -3);
    EXPECT_EQ(CheckedField::integer(Properties(), "f", 1u, 8192u, 128u), 128u);
    EXPECT_EQ(test::errorOf<Error>([] { CheckedField::integer(Properties(), "f", 1u, 8u); }),
              "\"f\" must be an integer in 1..8")
        << "a required field that is missing";
    const std::uint64_t top = UINT64_MAX;
    EXPECT_EQ(CheckedField::integer(withField("18446744073709551615"), "f", std::uint64_t(0), top),
              top);
}

TEST(CheckedField, ListsTakeOnlyIntegersInTheRange) {
    for (const char* text : {"[0,4]", "[4294967296]", "[-1]", "[0.5]", "[[0]]", "3", "\"0\""}) {
        EXPECT_EQ(test::errorOf<Error>(
                      [&] { CheckedField::integerList(withField(text), "f", 0u, 3u); }),
                  "\"f\" must be a list of integers in 0..3")
            << text;
    }
    EXPECT_EQ(CheckedField::integerList(withField("[3,0,3]"), "f", 0u, 3u),
              (std::vector<unsigned int>{3, 0, 3}));
    EXPECT_TRUE(CheckedField::integerList(withField("[]"), "f", 0u, 3u).empty());
}

TEST(CheckedField, NumbersOutsideTheRangeOrOfAnotherTypeAreRefused) {
    for (const char* text : {"-0.5", "3600.5", "1e300", "-1e300", "\"1\"", "false"}) {
        EXPECT_EQ(test::errorOf<Error>(
                      [&] { CheckedField::number(withField(text), "f", 0.0, 3600.0, 0.0); }),
                  "\"f\" must be a number in 0..3600")
            << text;
    }
    EXPECT_EQ(CheckedField::number(withField("7"), "f", 0.0, 3600.0, 0.0), 7.0);
    EXPECT_EQ(CheckedField::number(withField("0.25"), "f", 0.0, 0.5, 0.0), 0.25);
    EXPECT_EQ(CheckedField::number(Properties(), "f", 0.0, 1.0, 0.5), 0.5);
}

}  // namespace
}  // namespace tolm
