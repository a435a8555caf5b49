#include "machine/remote/RemoteProcessLauncher.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "machine/remote/RemoteShellFactory.h"
#include "neo/Error.h"
#include "platform/StringHelper.h"
#include "support/ChildRun.h"
#include "support/Failure.h"

namespace tolm {
namespace {

using Words = std::vector<std::wstring>;

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
