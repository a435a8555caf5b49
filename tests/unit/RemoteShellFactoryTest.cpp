#include "machine/remote/RemoteShellFactory.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "machine/core/Machine.h"
#include "machine/core/OptionError.h"
#include "machine/remote/CustomRemoteProcessLauncher.h"
#include "machine/remote/PuttyRemoteProcessLauncher.h"
#include "machine/remote/RemoteProcessLauncher.h"
#include "machine/remote/RemoteShellProcessLauncher.h"
#include "neo/Error.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "neo/SingletonCleaner.h"
#include "platform/StringHelper.h"
#include "support/Argv.h"
#include "support/ChildRun.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using Words = std::vector<std::wstring>;
using RshType = RemoteShellFactory::RshType;

std::string kindOf(const RemoteProcessLauncher& launcher) {
    if (dynamic_cast<const RemoteShellProcessLauncher*>(&launcher))
        return "rsh/ssh";
    if (dynamic_cast<const PuttyRemoteProcessLauncher*>(&launcher))
        return "plink";
    if (dynamic_cast<const CustomRemoteProcessLauncher*>(&launcher))
        return "custom";
    return "unknown";
}

// The words a command text gives, before the host.
Words wordsOf(const std::wstring& command) {
    Words words;
    RemoteShellFactory::getRemoteProcessLauncher(command)->getCommand(L"host", words);
    words.pop_back();
    return words;
}

std::string optionErrorOf(const std::wstring& command) {
    return test::errorOf<OptionError>(
        [&] { RemoteShellFactory::getRemoteProcessLauncher(command); });
}

TEST(RemoteShellFactory, TheProgramWordChoosesTheLauncher) {
    const std::tuple<const wchar_t*, const char*, const char*> cases[] = {
        {L"rsh", "rsh/ssh", "rsh node7"},
        {L"ssh -p 22", "rsh/ssh", "ssh -p 22 node7"},
        {L"RSH", "custom", "RSH node7"},
        {L"/usr/bin/ssh", "custom", "/usr/bin/ssh node7"},
        {L"/opt/putty/plink -P 22", "plink", "/opt/putty/plink -ssh -batch -P 22 node7"},
        {L"plink.exe", "plink", "plink.exe -ssh -batch node7"},
        {L"myrsh --fast", "custom", "myrsh --fast node7"},
    };
    for (const auto& [command, kind, words] : cases) {
        const auto launcher = RemoteShellFactory::getRemoteProcessLauncher(command);
        EXPECT_EQ(kindOf(*launcher), kind) << words;
        EXPECT_EQ(launcher->getCommand(L"node7"), words);
    }
}

TEST(RemoteShellFactory, EachTypeRunsItsOwnProgram) {
    EXPECT_EQ(RemoteShellFactory::getRemoteProcessLauncher(RshType::Rsh)->getCommand(L"h"),
              "rsh h");
    EXPECT_EQ(RemoteShellFactory::getRemoteProcessLauncher(RshType::Ssh)->getCommand(L"h"),
              "ssh h");
    EXPECT_EQ(RemoteShellFactory::getRemoteProcessLauncher(RshType::Plink)->getCommand(L"h"),
              "plink -ssh -batch h");
    EXPECT_EQ(kindOf(*RemoteShellFactory::getRemoteProcessLauncher(RshType::Custom)), "custom");
    for (int bad : {-1, 4}) {
        EXPECT_EQ(test::errorOf<NonRecoverableError>([&] {
                      RemoteShellFactory::getRemoteProcessLauncher(static_cast<RshType>(bad));
                  }),
                  "Unknown remote shell type");
    }
}

TEST(RemoteShellFactory, CommandTextsSplitByTheQuotingRules) {
    const std::pair<const wchar_t*, Words> cases[] = {
        {L"  ssh\t -p   22 \n", {L"ssh", L"-p", L"22"}},
        {L"'/opt/my tools/rsh' -o 'A B'", {L"/opt/my tools/rsh", L"-o", L"A B"}},
        {LR"(rsh "say \"hi\"" "back\\slash" "C:\path")",
         {L"rsh", L"say \"hi\"", LR"(back\slash)", LR"(C:\path)"}},
        {LR"(rsh a\ b \"q\" \\ 'it''s' 'a\b')",
         {L"rsh", L"a b", L"\"q\"", LR"(\)", L"its", LR"(a\b)"}},
        {LR"(rsh -o"A B"C '' "" end\)", {L"rsh", L"-oA BC", L"", L"", LR"(end\)"}},
    };
    for (const auto& [command, words] : cases)
        EXPECT_EQ(wordsOf(command), words);
}

TEST(RemoteShellFactory, AnOpenQuoteOrNoWordIsAnOptionError) {
    EXPECT_EQ(optionErrorOf(L"ssh -o 'open"),
              "Unterminated quote in remote shell command: ssh -o 'open");
    EXPECT_EQ(optionErrorOf(LR"(ssh "a\")"),
              R"(Unterminated quote in remote shell command: ssh "a\")");
    EXPECT_EQ(optionErrorOf(L""), "Empty remote shell command");
    EXPECT_EQ(optionErrorOf(L" \t "), "Empty remote shell command");
}

class DefaultRemoteShell : public ::testing::Test {
  protected:
    void TearDown() override {
        Machine::reset();
        SingletonCleaner::reset();
    }
};

TEST_F(DefaultRemoteShell, ComesFromTheRshOptionAndABadValueKeepsTheLastGood) {
    RemoteShellFactory& factory = RemoteShellFactory::getSingleton();
    EXPECT_EQ(test::failureOf([&] { factory.getRemoteProcessLauncher(); }),
              "Default remote process launcher has not been set | _default");
    test::parseCommonOptions({"server", "-s", "-rsh", "ssh -p 2222 -o 'User=a b'"});
    EXPECT_EQ(factory.getDefaultRemoteShellCommand(), L"ssh -p 2222 -o 'User=a b'");
    Words words;
    factory.getRemoteProcessLauncher().getCommand(L"h", words);
    EXPECT_EQ(words, (Words{L"ssh", L"-p", L"2222", L"-o", L"User=a b", L"h"}));

    EXPECT_THROW(test::parseCommonOptions({"server", "-s", "-rsh", "ssh -o \"x"}), OptionError);
    EXPECT_EQ(factory.getRemoteProcessLauncher().getCommand(L"h"), "ssh -p 2222 -o User=a b h");
}

TEST_F(DefaultRemoteShell, OnlyOneFactoryAtATime) {
    RemoteShellFactory::getSingleton();
    EXPECT_EQ(test::failureOf([] { RemoteShellFactory second; }),
              "Only one instance of factory permitted | _singleton == nullptr");
    RemoteShellFactory::reset();
    {
        RemoteShellFactory own;
        EXPECT_EQ(&RemoteShellFactory::getSingleton(), &own);
    }
    RemoteShellFactory::getSingleton().setDefaultRemoteProcessLauncher(L"rsh");  // not dangling
    EXPECT_EQ(RemoteShellFactory::getSingleton().getRemoteProcessLauncher().getCommand(L"h"),
              "rsh h");
}

TEST(RemoteProcessLauncher, ShellWordsKeepTheOptionOrderAndAddTheUserOnlyWhenGiven) {
    auto launcher = RemoteShellFactory::getRemoteProcessLauncher(L"rsh");
    launcher->addOption(L"-x");
    launcher->addOption(L"-p", L"22");
    launcher->addOption(RemoteProcessLauncher::Option{L"-e", L""});
    Words words{L"left over"};
    launcher->getCommand(L"node7", L"alice", words);
    EXPECT_EQ(words, (Words{L"rsh", L"-x", L"-p", L"22", L"-e", L"-l", L"alice", L"node7"}));
    launcher->getCommand(L"node7", words);
    EXPECT_EQ(words, (Words{L"rsh", L"-x", L"-p", L"22", L"-e", L"node7"}));
    EXPECT_EQ(launcher->getCommand(L"node7", L"alice"), "rsh -x -p 22 -e -l alice node7");
    ASSERT_NE(launcher->findOption(L"-p"), nullptr);
    EXPECT_EQ(launcher->findOption(L"-p")->value, L"22");
    EXPECT_EQ(launcher->findOption(L"22"), nullptr);
}

TEST(RemoteProcessLauncher, VerboseStartPrintsTheCommandAndAMissingShellIsAClearError) {
    auto launcher = RemoteShellFactory::getRemoteProcessLauncher(L"tolm-no-such-rsh -x");
    launcher->setVerbose(true);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(
        test::errorOf<Error>([&] {
            launcher->spawnProcess(L"node7", L"alice", {L"run", L"a b", L"$HOME;|x", L"tab\there"});
        }),
        "Cannot start \"tolm-no-such-rsh\": No such file or directory");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "tolm-no-such-rsh -x -l alice node7 run \"a b\" $HOME;|x \"tab\there\"\n");
}

TEST(RemoteProcessLauncher, AHostNameThatTheShellWouldReadAsAnOptionIsRefused) {
    auto launcher = RemoteShellFactory::getRemoteProcessLauncher(L"ssh");
    const std::string marker = test::makeTemporaryDirectory() + "/ran";
    const std::wstring host = L"-oProxyCommand=touch " + StringHelper::decode(marker);
    EXPECT_EQ(test::errorOf<Error>([&] { launcher->spawnProcess(host, {L"true"}); }),
              "Host name \"-oProxyCommand=touch " + marker +
                  "\" refused: a host name must not be empty or begin with \"-\"");
    EXPECT_FALSE(std::filesystem::exists(marker));
    EXPECT_EQ(test::errorOf<Error>([&] { launcher->getCommand(L""); }),
              "Host name \"\" refused: a host name must not be empty or begin with \"-\"");
}

}  // namespace
}  // namespace tolm
