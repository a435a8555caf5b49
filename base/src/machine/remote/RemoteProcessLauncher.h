#pragma once
#include <memory>
#include <string>
#include <vector>

#include "platform/Process.h"

namespace tolm {

class Pipe;

// Starts a command on another host through a remote shell program. The argument vector is
//   program, options (name, then value when it has one), [user-name option, user], host,
//   remote command arguments (those holding a blank wrapped in double quotes, so that the
//   remote host's shell sees each as one word)
// and is started directly, with no local shell in between.
//
// Errors: a remote shell that cannot be started raises Error with the platform's reason,
// "Cannot start "<program>": <reason>". A host name that is empty or begins with "-" (which the
// remote shell would take for an option) raises Error before anything starts. A remote shell that starts but cannot reach the host
// ends with its own exit status (255 for ssh) and explains on its standard error.
class RemoteProcessLauncher {
public:
    struct Option {
        std::wstring name;
        std::wstring value;  // empty: the option is the name alone
    };

    static const std::wstring _defaulUserNameOption;

    virtual ~RemoteProcessLauncher() = default;
    RemoteProcessLauncher(const RemoteProcessLauncher&) = delete;
    RemoteProcessLauncher& operator=(const RemoteProcessLauncher&) = delete;

    void addOption(const Option& option) { _options.push_back(option); }
    void addOption(const std::wstring& name) { addOption(Option{name, L""}); }
    void addOption(const std::wstring& name, const std::wstring& value) {
        addOption(Option{name, value});
    }
    // The first option of that name, or null.
    const Option* findOption(const std::wstring& name) const;
    // Prints each started argument vector to standard output first.
    void setVerbose(bool verbose) { _verbose = verbose; }

    // The remote shell's part of the argument vector, up to the host name; an empty user adds
    // no user-name option. The narrow forms join the words with blanks.
    void getCommand(const std::wstring& host, const std::wstring& user,
                    std::vector<std::wstring>& command) const;
    void getCommand(const std::wstring& host, std::vector<std::wstring>& command) const;
    std::string getCommand(const std::wstring& host, const std::wstring& user) const;
    std::string getCommand(const std::wstring& host) const;

    // Runs `arguments` on `host` and waits; returns the remote shell's exit status.
    int spawnProcess(const std::wstring& host, const std::wstring& user,
                     const std::vector<std::wstring>& arguments) const;
    int spawnProcess(const std::wstring& host, const std::vector<std::wstring>& arguments) const;
    // Runs `arguments` on `host` without waiting. With `output`, the remote shell's standard
    // output and error go into that pipe (see OS::Process::spawn).
    std::unique_ptr<OS::Process::ProcessHandle> spawnProcessNoWait(
        const std::wstring& host, const std::wstring& user,
        const std::vector<std::wstring>& arguments, Pipe* output = nullptr) const;
    std::unique_ptr<OS::Process::ProcessHandle> spawnProcessNoWait(
        const std::wstring& host, const std::vector<std::wstring>& arguments,
        Pipe* output = nullptr) const;

    virtual std::wstring getUserNameOption() const { return _defaulUserNameOption; }

protected:
    explicit RemoteProcessLauncher(std::wstring remoteShell)
        : _remoteShell(std::move(remoteShell)) {}

    const std::vector<Option>& getOptions() const { return _options; }
    // The program that is run: by default the remote shell command given at construction.
    virtual std::wstring getProgram() const { return _remoteShell; }

private:
    void constructCommand(const std::wstring& host, const std::wstring& user,
                          const std::vector<std::wstring>& arguments,
                          std::vector<std::wstring>& command, bool verbose) const;
    static void printCommand(const std::vector<std::wstring>& command);
    std::unique_ptr<OS::Process::ProcessHandle> start(const std::wstring& host,
                                                      const std::wstring& user,
                                                      const std::vector<std::wstring>& arguments,
                                                      Pipe* output) const;

    std::wstring _remoteShell;
    std::vector<Option> _options;
    bool _verbose = false;
};

}  // namespace tolm
