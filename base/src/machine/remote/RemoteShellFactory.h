#pragma once
#include <memory>
#include <string>
#include <vector>

#include "machine/remote/RemoteProcessLauncher.h"

namespace tolm {

// Chooses the kind of remote shell from a command text and creates its launcher. The job's
// default launcher comes from the "-rsh" option.
//
// A command text is split into words like this:
//   - blanks (space, tab, carriage return, line feed) separate words; runs of blanks count
//     as one, and leading or trailing blanks are ignored;
//   - text in single quotes is taken as it stands, up to the next single quote;
//   - text in double quotes is taken as it stands up to the next double quote, except that
//     \" and \\ stand for " and \ (any other backslash is kept);
//   - outside quotes a backslash takes the next character as it stands (a blank, a quote,
//     a backslash); a backslash at the very end is kept;
//   - quoted and unquoted pieces with no blank between them make one word, and "" or ''
//     alone makes an empty word.
// The first word is the program, which decides the type; every other word becomes an option
// of the launcher, in order. A quote left open or a text without words is an OptionError.
//
// Errors: an unknown type is a NonRecoverableError; asking for the default launcher before
// one was set, or constructing a second factory, is an InternalError.
class RemoteShellFactory {
public:
    enum class RshType {
        Rsh = 0,     // exactly "rsh"
        Ssh = 1,     // exactly "ssh"
        Plink = 2,   // any program containing "plink"
        Custom = 3,  // anything else
    };

    static RemoteShellFactory& getSingleton();
    static void reset();

    RemoteShellFactory();
    ~RemoteShellFactory();
    RemoteShellFactory(const RemoteShellFactory&) = delete;
    RemoteShellFactory& operator=(const RemoteShellFactory&) = delete;

    // A new launcher running the type's own program ("rsh", "ssh", "plink"); the custom type
    // has none, so ask for custom shells by their command instead.
    static std::unique_ptr<RemoteProcessLauncher> getRemoteProcessLauncher(const RshType& type);
    // A new launcher for a command text such as "ssh -p 2222" (see the splitting rules).
    static std::unique_ptr<RemoteProcessLauncher> getRemoteProcessLauncher(
        const std::wstring& command);

    void setDefaultRemoteProcessLauncher(const std::wstring& command);
    RemoteProcessLauncher& getRemoteProcessLauncher();
    // The command text of the default launcher, empty before one was set.
    const std::wstring& getDefaultRemoteShellCommand() const { return _defaultCommand; }

private:
    static RshType getType(const std::wstring& program);
    static void parseCommand(const std::wstring& command, std::wstring& program,
                             std::vector<std::wstring>& arguments);
    static std::unique_ptr<RemoteProcessLauncher> create(const RshType& type, std::wstring program);

    static RemoteShellFactory* _singleton;
    static std::unique_ptr<RemoteShellFactory> _created;  // the instance getSingleton made
    std::unique_ptr<RemoteProcessLauncher> _default;
    std::wstring _defaultCommand;
};

}  // namespace tolm
