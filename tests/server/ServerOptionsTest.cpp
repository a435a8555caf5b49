// The reference server's own options: which arguments are left over after start-up, and the
// requests that answer without starting the machine.
#include <gtest/gtest.h>

#include "ServerOptions.h"
#include "support/Argv.h"

namespace tolm {
namespace {

using test::Argv;
using Entries = std::vector<std::string>;

struct LeftoverCase {
    const char* name;
    Argv args;
    Machine::ArgumentMap consumed;
    Entries expected;
};

TEST(ServerOptions, LeftoversAreWhatNoStepAndNoServerOptionTook) {
    LeftoverCase cases[] = {
        {"unknown option and its value",
         {"server", "-s", "-bogus", "3"},
         {{"-s", 1}},
         {"-bogus", "3"}},
        {"machine and server options",
         {"server", "-tmpdir", "/x", "-batch", "f", "-check"},
         {{"-tmpdir", 2}},
         {}},
        {"counts of the map",
         {"server", "-param", "a", "b", "-nothreads", "7"},
         {{"-param", 3}, {"-nothreads", 1}},
         {"7"}},
        {"design options",
         {"server", "-dmprojectid", "7", "-dmproject", "-x", "-dmrunfile"},
         {},
         {"-x"}},
        {"empty entries", {"server", "", "-y", ""}, {}, {"-y"}},
        {"both spellings of the requests", {"server", "--help", "-version", "--version"}, {}, {}},
    };
    for (auto& [name, args, consumed, expected] : cases)
        EXPECT_EQ(ServerOptions::leftovers(args.argc(), args.argv(), consumed), expected) << name;
}

TEST(ServerOptions, LeftoversMakeOneWarningLine) {
    EXPECT_EQ(ServerOptions::leftoverWarning({"-bogus", "3", "-x"}),
              "Warning: unused options: -bogus 3 -x");
    EXPECT_EQ(ServerOptions::leftoverWarning({}), "");
}

TEST(ServerOptions, HelpWinsOverVersionAndEitherSpellingCounts) {
    const auto request = [](Argv args) {
        return ServerOptions::informationRequest(args.argc(), args.argv());
    };
    EXPECT_EQ(request({"server", "-s", "--version"}), ServerOptions::versionText());
    EXPECT_EQ(request({"server", "-version"}), ServerOptions::versionText());
    EXPECT_EQ(request({"server", "-version", "--help"}), ServerOptions::usage());
    EXPECT_EQ(request({"server", "-help"}), ServerOptions::usage());
    EXPECT_EQ(request({"server", "-s", "-helpful"}), std::nullopt);
}

}  // namespace
}  // namespace tolm
