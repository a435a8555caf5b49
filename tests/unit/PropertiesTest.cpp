#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "machine/core/ExitStatus.h"
#include "neo/CheckedField.h"
#include "neo/Error.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "neo/Properties.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using Code = ExitStatus::ErrorCode;

TEST(Properties, TextRoundTripKeepsKeyOrderAndValues) {
    Properties properties;
    properties.set("zeta", 1);
    properties.set("alpha", std::string("text"));
    Properties child;
    child.set("nested", 2.5);
    properties.setChild("child", child);

    const Properties copy(properties.toString());
    EXPECT_EQ(copy.toString(), R"({"zeta":1,"alpha":"text","child":{"nested":2.5}})");
    EXPECT_EQ(copy.keys(), (std::vector<std::string>{"zeta", "alpha", "child"}));
    EXPECT_EQ(copy.getChild("child").get<double>("nested"), 2.5);
}

TEST(Properties, MalformedTextIsAnErrorNotACrash) {
    for (const char* text : {"", "{", "not json", "{\"a\":}", "[1,2]", "42", "\"s\"",
                             "{\"a\":1} trailing", "\xff\xfe"}) {
        const std::string error = test::errorOf<Error>([&] { Properties{std::string_view(text)}; });
        EXPECT_TRUE(error.starts_with("Malformed properties text: ")) << text << ": " << error;
    }
}

TEST(Properties, NestingBeyondTheLimitIsRefusedBeforeParsing) {
    const auto nested = [](unsigned int levels, const std::string& inner) {
        return "{\"a\":" + std::string(levels - 1, '[') + inner + std::string(levels - 1, ']') +
               "}";
    };
    EXPECT_NO_THROW(Properties{nested(Properties::MAX_NESTING, "1")});
    EXPECT_NO_THROW(Properties{nested(Properties::MAX_NESTING, "\"[[[{{{\\\"[[[\"")})
        << "brackets inside strings are text";
    for (const unsigned int levels : {Properties::MAX_NESTING + 1, 1000000u}) {
        EXPECT_EQ(test::errorOf<Error>([&] { Properties{nested(levels, "1")}; }),
                  "Malformed properties text: nested deeper than 128 levels");
    }
}

TEST(Properties, ReadingTextLeavesTheFloatingPointFlagsAsTheyWere) {
    std::feclearexcept(FE_ALL_EXCEPT);
    for (const char* text : {R"({"tiny":1e-400,"huge":1e400})", R"({"tiny":1e-400,)"}) {
        try {
            Properties{std::string_view(text)};
        } catch (const Error&) {
        }
        EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), 0) << text;
    }
    std::feraiseexcept(FE_DIVBYZERO);
    Properties{std::string_view(R"({"tiny":1e-400})")};
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), FE_DIVBYZERO) << "the caller's flags are kept";
    std::feclearexcept(FE_ALL_EXCEPT);
}

TEST(Properties, MissingKeysAndWrongTypesNameTheKey) {
    const Properties properties(R"({"count":"three","child":5})");
    EXPECT_EQ(test::errorOf<Error>([&] { properties.get<int>("absent"); }),
              "Property \"absent\" is missing");
    EXPECT_EQ(test::errorOf<Error>([&] { properties.get<int>("count"); }),
              "Property \"count\" has the wrong type");
    EXPECT_THROW(properties.getChild("child"), Error);
    EXPECT_EQ(properties.get<int>("absent", 7), 7);
}

TEST(Errors, AssertionCarriesConditionFileAndLine) {
    const int limit = 3;
    const int assertionLine = __LINE__ + 2;
    try {
        TOLM_ASSERT(limit > 5, "limit too small: " + std::to_string(limit));
        FAIL();
    } catch (const InternalError& error) {
        EXPECT_STREQ(error.what(), "limit too small: 3");
        EXPECT_EQ(error.getCondition(), "limit > 5");
        EXPECT_NE(error.getFile().find("PropertiesTest.cpp"), std::string::npos);
        EXPECT_EQ(error.getLine(), assertionLine);
        EXPECT_TRUE(error.properties().has(Error::STACK_TRACE_TAG));
    }
}

TEST(Errors, ResponseCarriesTheErrorRecordWithoutStackTrace) {
    Properties response;
    response.set("kept", true);
    NonRecoverableError("disk gone").writeTo(response);
    EXPECT_TRUE(Error::isErrorIn(response));
    EXPECT_EQ(Error::getMessage(response), "disk gone");
    EXPECT_TRUE(NonRecoverableError::isNonRecoverableErrorIn(response));
    EXPECT_FALSE(response.has(Error::STACK_TRACE_TAG));
    EXPECT_TRUE(response.get<bool>("kept"));

    Properties plain;
    Error("soft", 1).writeTo(plain);
    EXPECT_FALSE(NonRecoverableError::isNonRecoverableErrorIn(plain));
    EXPECT_EQ(Error::getMessage(Properties()), "");
}

// Numeric command fields: every value of the wrong type or outside the range is refused with
// the field's name and range, and nothing wraps or is cut on its way to a narrower type.
Properties withField(const std::string& valueText) {
    return Properties("{\"f\":" + valueText + "}");
}

TEST(CheckedField, IntegersOutsideTheRangeOrOfAnotherTypeAreRefused) {
    for (const char* text : {"-1", "0", "2.5", "8193", "4294967297", "18446744073709551615",
                             "-9223372036854775808", "1e30", "\"12\"", "true", "null", "[1]"}) {
        EXPECT_EQ(
            test::errorOf<Error>([&] { CheckedField::integer(withField(text), "f", 1u, 8192u); }),
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
        EXPECT_EQ(
            test::errorOf<Error>([&] { CheckedField::integerList(withField(text), "f", 0u, 3u); }),
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

TEST(ExitStatus, CodesAccumulateAsBitsAndListTheirMessagesInAscendingOrder) {
    struct Case {
        std::vector<Code> codes;
        int exitCode;
        const char* message;
    };
    const Case cases[] = {
        {{}, 0, ""},
        {{ExitStatus::SuccessCode}, 0, ""},
        {{ExitStatus::ServerErrorCode}, 1, ""},  // an exit code, but no message
        {{ExitStatus::NonRecoverableErrorCode, ExitStatus::InvalidArgumentCode},
         34,
         "Invalid server argument,Non-recoverable server error"},
        {{ExitStatus::FileErrorCode, ExitStatus::NonRecoverableErrorCode},
         36,
         "File error,Non-recoverable server error"},
        {{ExitStatus::FloatingPointErrorCode}, 16, "Floating point error during last iteration"},
    };
    for (const Case& c : cases) {
        ExitStatus status;
        for (const Code code : c.codes)
            status += code;
        EXPECT_EQ(int(status), c.exitCode) << c.message;
        EXPECT_EQ(status.hasError(), c.exitCode != 0) << c.message;
        EXPECT_EQ(status.getMessage(), c.message);
    }
}

TEST(ExitStatus, AddingAStatusToItselfChangesNothing) {
    ExitStatus status(ExitStatus::FileErrorCode);
    status += ExitStatus::InvalidArgumentCode;
    status += status;
    EXPECT_EQ(int(status), 6);
    EXPECT_EQ(status.getMessage(), "Invalid server argument,File error");
}

TEST(ExitStatus, CodeOutsideTheTableIsOutOfRange) {
    for (const int code : {7, -1}) {
        EXPECT_EQ(test::errorOf<std::out_of_range>([&] { ExitStatus(static_cast<Code>(code)); }),
                  "invalid bitset<N> position")
            << code;
    }
}

}  // namespace
}  // namespace tolm
