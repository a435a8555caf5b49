#include "machine/remote/RemoteShellFactory.h"

#include "machine/remote/CustomRemoteProcessLauncher.h"
#include "machine/core/OptionError.h"
#include "machine/remote/PuttyRemoteProcessLauncher.h"
#include "machine/remote/RemoteShellProcessLauncher.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "neo/SingletonCleaner.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

// Splits a command text into words by the rules stated in the header.
class WordSplitter {
public:
    explicit WordSplitter(const std::wstring& text) : _text(text) {}

    std::vector<std::wstring> split() {
        std::vector<std::wstring> words;
        while (skipBlanks()) words.push_back(word());
        return words;
    }

private:
    static bool isBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }
    bool atEnd() const { return _at >= _text.size(); }

    // False when nothing but blanks is left.
    bool skipBlanks() {
        while (!atEnd() && isBlank(_text[_at])) ++_at;
        return !atEnd();
    }

    std::wstring word() {
        std::wstring word;
        while (!atEnd() && !isBlank(_text[_at])) {
            const wchar_t c = _text[_at++];
            if (c == L'\'') {
                word += singleQuoted();
            } else if (c == L'"') {
                word += doubleQuoted();
            } else if (c == L'\\' && !atEnd()) {
                word += _text[_at++];
            } else {
                word += c;
            }
        }
        return word;
    }

    std::wstring singleQuoted() {
        const auto end = _text.find(L'\'', _at);
        if (end == std::wstring::npos) throw unterminated();
        std::wstring piece = _text.substr(_at, end - _at);
        _at = end + 1;
        return piece;
    }

    std::wstring doubleQuoted() {
        std::wstring piece;
        while (!atEnd()) {
            const wchar_t c = _text[_at++];
            if (c == L'"') return piece;
            const bool escape =
                c == L'\\' && !atEnd() && (_text[_at] == L'"' || _text[_at] == L'\\');
            piece += escape ? _text[_at++] : c;
        }
        throw unterminated();
    }

    OptionError unterminated() const {
        return OptionError("Unterminated quote in remote shell command: " +
                           StringHelper::toString(_text));
    }

    const std::wstring& _text;
    std::size_t _at = 0;
};

}  // namespace

RemoteShellFactory* RemoteShellFactory::_singleton = nullptr;
std::unique_ptr<RemoteShellFactory> RemoteShellFactory::_created;

RemoteShellFactory& RemoteShellFactory::getSingleton() {
    if (!_singleton) {
        _created = std::make_unique<RemoteShellFactory>();
        SingletonCleaner::registerCleanUp(&RemoteShellFactory::reset);
    }
    return *_singleton;
}

void RemoteShellFactory::reset() {
    _created.reset();
}

RemoteShellFactory::RemoteShellFactory() {
    TOLM_ASSERT(_singleton == nullptr, "Only one instance of factory permitted");
    _singleton = this;
}

RemoteShellFactory::~RemoteShellFactory() {
    if (_singleton == this) _singleton = nullptr;
}

RemoteShellFactory::RshType RemoteShellFactory::getType(const std::wstring& program) {
    if (program == L"rsh") return RshType::Rsh;
    if (program == L"ssh") return RshType::Ssh;
    if (program.find(L"plink") != std::wstring::npos) return RshType::Plink;
    return RshType::Custom;
}

void RemoteShellFactory::parseCommand(const std::wstring& command, std::wstring& program,
                                      std::vector<std::wstring>& arguments) {
    arguments = WordSplitter(command).split();
    if (arguments.empty()) throw OptionError("Empty remote shell command");
    program = std::move(arguments.front());
    arguments.erase(arguments.begin());
}

std::unique_ptr<RemoteProcessLauncher> RemoteShellFactory::create(const RshType& type,
                                                                  std::wstring program) {
    switch (type) {
        case RshType::Rsh:
        case RshType::Ssh:
            return std::make_unique<RemoteShellProcessLauncher>(std::move(program));
        case RshType::Plink:
            return std::make_unique<PuttyRemoteProcessLauncher>(std::move(program));
        case RshType::Custom:
            return std::make_unique<CustomRemoteProcessLauncher>(std::move(program));
    }
    throw NonRecoverableError("Unknown remote shell type");
}

std::unique_ptr<RemoteProcessLauncher> RemoteShellFactory::getRemoteProcessLauncher(
    const RshType& type) {
    switch (type) {
        case RshType::Rsh:
            return create(type, L"rsh");
        case RshType::Ssh:
            return create(type, L"ssh");
        case RshType::Plink:
            return create(type, L"plink");
        default:
            return create(type, L"");
    }
}

std::unique_ptr<RemoteProcessLauncher> RemoteShellFactory::getRemoteProcessLauncher(
    const std::wstring& command) {
    std::wstring program;
    std::vector<std::wstring> arguments;
    parseCommand(command, program, arguments);
    auto launcher = create(getType(program), program);
    for (const auto& argument : arguments) launcher->addOption(argument);
    return launcher;
}

void RemoteShellFactory::setDefaultRemoteProcessLauncher(const std::wstring& command) {
    _default = getRemoteProcessLauncher(command);
    _defaultCommand = command;
}

RemoteProcessLauncher& RemoteShellFactory::getRemoteProcessLauncher() {
    TOLM_ASSERT(_default, "Default remote process launcher has not been set");
    return *_default;
}

}  // namespace tolm
