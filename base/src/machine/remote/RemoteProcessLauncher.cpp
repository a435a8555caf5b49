#include "machine/remote/RemoteProcessLauncher.h"

#include <cstdio>

#include "neo/Error.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

bool hasBlank(const std::wstring& word) {
    return word.find_first_of(L" \t") != word.npos;
}

std::string join(const std::vector<std::wstring>& words) {
    std::string text;
    for (const auto& word : words) {
        if (!text.empty()) text += ' ';
        text += StringHelper::toString(word);
    }
    return text;
}

}  // namespace

const std::wstring RemoteProcessLauncher::_defaulUserNameOption = L"-l";

const RemoteProcessLauncher::Option* RemoteProcessLauncher::findOption(
    const std::wstring& name) const {
    for (const auto& option : _options) {
        if (option.name == name) return &option;
    }
    return nullptr;
}

void RemoteProcessLauncher::getCommand(const std::wstring& host, const std::wstring& user,
                                       std::vector<std::wstring>& command) const {
    // The remote shell would read such a word as one of its options (ssh's -oProxyCommand=
    // runs a local command).
    if (host.empty() || host.front() == L'-') {
        throw Error("Host name \"" + StringHelper::toString(host) +
                        "\" refused: a host name must not be empty or begin with \"-\"",
                    1);
    }
    command.clear();
    command.reserve(2 * _options.size() + 4);
    command.push_back(getProgram());
    for (const auto& option : _options) {
        command.push_back(option.name);
        if (!option.value.empty()) command.push_back(option.value);
    }
    if (!user.empty()) {
        command.push_back(getUserNameOption());
        command.push_back(user);
    }
    command.push_back(host);
}

void RemoteProcessLauncher::getCommand(const std::wstring& host,
                                       std::vector<std::wstring>& command) const {
    getCommand(host, L"", command);
}

std::string RemoteProcessLauncher::getCommand(const std::wstring& host,
                                              const std::wstring& user) const {
    std::vector<std::wstring> command;
    getCommand(host, user, command);
    return join(command);
}

std::string RemoteProcessLauncher::getCommand(const std::wstring& host) const {
    return getCommand(host, std::wstring());
}

void RemoteProcessLauncher::constructCommand(const std::wstring& host, const std::wstring& user,
                                             const std::vector<std::wstring>& arguments,
                                             std::vector<std::wstring>& command,
                                             bool verbose) const {
    getCommand(host, user, command);
    for (const auto& argument : arguments) {
        command.push_back(hasBlank(argument) ? L'"' + argument + L'"' : argument);
    }
    if (verbose) printCommand(command);
}

void RemoteProcessLauncher::printCommand(const std::vector<std::wstring>& command) {
    std::printf("%s\n", join(command).c_str());
    std::fflush(stdout);
}

std::unique_ptr<OS::Process::ProcessHandle> RemoteProcessLauncher::start(
    const std::wstring& host, const std::wstring& user, const std::vector<std::wstring>& arguments,
    Pipe* output) const {
    std::vector<std::wstring> command;
    constructCommand(host, user, arguments, command, _verbose);
    std::vector<std::string> narrow;
    narrow.reserve(command.size());
    for (const auto& word : command) narrow.push_back(StringHelper::toString(word));
    std::string error;
    auto child = OS::Process::spawn(narrow, output, error);
    if (!child) throw Error(error, 1);
    return child;
}

int RemoteProcessLauncher::spawnProcess(const std::wstring& host, const std::wstring& user,
                                        const std::vector<std::wstring>& arguments) const {
    return start(host, user, arguments, nullptr)->wait();
}

int RemoteProcessLauncher::spawnProcess(const std::wstring& host,
                                        const std::vector<std::wstring>& arguments) const {
    return spawnProcess(host, L"", arguments);
}

std::unique_ptr<OS::Process::ProcessHandle> RemoteProcessLauncher::spawnProcessNoWait(
    const std::wstring& host, const std::wstring& user, const std::vector<std::wstring>& arguments,
    Pipe* output) const {
    return start(host, user, arguments, output);
}

std::unique_ptr<OS::Process::ProcessHandle> RemoteProcessLauncher::spawnProcessNoWait(
    const std::wstring& host, const std::vector<std::wstring>& arguments, Pipe* output) const {
    return start(host, L"", arguments, output);
}

}  // namespace tolm
