#include <gtest/gtest.h>

#include <cfenv>

#include "neo/Error.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "neo/Properties.h"
#include "support/Failure.h"

namespace tolm {
namespace {

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

}  // namespace
}  // namespace tolm
