#include "machine/files/StandardStreamManager.h"

#include <cstdio>

#include "machine/core/Machine.h"
#include "neo/InternalError.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "platform/StringHelper.h"

namespace tolm {

std::wstring StandardStreamManager::logFileName(const std::string& executableName, int pid,
                                                const char* suffix) {
    const auto dot = executableName.rfind('.');
    const std::string stem =
        dot == std::string::npos ? executableName : executableName.substr(0, dot);
    return StringHelper::decode(stem + std::to_string(pid) + suffix);
}

StandardStreamManager::StandardStreamManager(const std::wstring& directory, bool announce)
    : _stdout(stdout, directory,
              logFileName(Machine::getExecutableName(), Platform::process().pid(), "-stdout.txt")),
      _stderr(stderr, directory,
              logFileName(Machine::getExecutableName(), Platform::process().pid(), "-stderr.txt")),
      _announce(announce) {}

StandardStreamManager::~StandardStreamManager() {
    restore();
}

std::pair<std::wstring, std::wstring> StandardStreamManager::redirectOriginalStreamsToFile() {
    if (_announce && !hasRedirectedOriginalStreams()) {
        std::printf("Standard output goes to %s, standard error to %s\n",
                    StringHelper::toString(_stdout.path()).c_str(),
                    StringHelper::toString(_stderr.path()).c_str());
    }
    const std::wstring stdoutLogFile = _stdout.openLogFile();
    TOLM_ASSERT(!stdoutLogFile.empty(), "Failed to redirect stdout");
    writePendingOutput();
    const std::wstring stderrLogFile = _stderr.openLogFile();
    TOLM_ASSERT(!stderrLogFile.empty(), "Failed to redirect stderr");
    return {stdoutLogFile, stderrLogFile};
}

bool StandardStreamManager::hasRedirectedOriginalStreams() const {
    return _stdout.isLogFileOpen() || _stderr.isLogFileOpen();
}

void StandardStreamManager::redirectToNullDevice() {
    _stdout.redirectToNullDevice();
    _stderr.redirectToNullDevice();
}

bool StandardStreamManager::hasNullRedirection() const {
    return !_stdout.hasRedirector() || !_stderr.hasRedirector();
}

void StandardStreamManager::restore() {
    std::fflush(stdout);
    std::fflush(stderr);
    _stdout.restore();
    _stderr.restore();
}

void StandardStreamManager::prependOutput(std::string text) {
    _pendingOutput += std::move(text);
    writePendingOutput();
}

void StandardStreamManager::writePendingOutput() {
    if (_pendingOutput.empty() || !_stdout.isLogFileOpen())
        return;
    std::fflush(stdout);
    std::fputs(_pendingOutput.c_str(), _stdout.logFile());
    std::fflush(_stdout.logFile());
    _pendingOutput.clear();
}

}  // namespace tolm
