// Launches through OpenSSH's ssh against the private sshd that sshd-fixture.sh starts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "neo/SingletonCleaner.h"
#include "platform/StringHelper.h"
#include "remote/ReportedLaunch.h"
#include "support/ChildRun.h"

namespace tolm {
namespace {

using Lines = std::vector<std::string>;

// A port on 127.0.0.1 where nothing listens (free when this returns).
int closedPort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ::bind(probe, reinterpret_cast<sockaddr*>(&address), length);
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(probe);
    return ntohs(address.sin_port);
}

std::string sshCommand(const std::string& port, const std::string& key) {
    return "ssh -p " + port + " -i " + key +
           " -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -o BatchMode=yes"
           " -o LogLevel=ERROR -o ConnectTimeout=5";
}

class SshRemoteShell : public ::testing::Test {
protected:
    void SetUp() override {
        auto state = test::readKeyValueFile(TOLM_SSHD_STATE);
        if (state.empty()) {
            GTEST_SKIP() << "no sshd: " TOLM_SSHD_STATE " is missing (run through ctest)";
        }
        if (state.count("skip")) GTEST_SKIP() << "no sshd: " << state["skip"];
        _command = sshCommand(state["port"], state["key"]);
        _user = StringHelper::decode(state["user"]);
    }
    void TearDown() override {
        Machine::reset();
        SingletonCleaner::reset();
    }

    std::string _command;
    std::wstring _user;
};

TEST_F(SshRemoteShell, LinesOfARemoteCommandComeBackThroughAReporter) {
    auto& launcher = test::launcherFromRshOption(_command);
    int status = -1;
    EXPECT_EQ(test::runReported(launcher, L"127.0.0.1", _user,
                                {L"printf", L"'%s\\n'", L"two words", L"one", L"$((6*7))"}, status),
              (Lines{"two words", "one", "42"}));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(test::runReported(launcher, L"127.0.0.1", L"", {L"exit", L"3"}, status), Lines{});
    EXPECT_EQ(status, 3);
}

TEST(SshRemoteShellFailure, AHostThatRefusesGivesSshsReasonAndStatus) {
    const std::string port = std::to_string(closedPort());
    const auto launcher = RemoteShellFactory::getRemoteProcessLauncher(
        StringHelper::decode(sshCommand(port, "/dev/null")));
    int status = -1;
    EXPECT_EQ(test::runReported(*launcher, L"127.0.0.1", L"", {L"true"}, status),
              Lines{"ssh: connect to host 127.0.0.1 port " + port + ": Connection refused"});
    EXPECT_EQ(status, 255);
}

}  // namespace
}  // namespace tolm
