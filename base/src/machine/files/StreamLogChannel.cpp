#include "machine/files/StreamLogChannel.h"

#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

std::wstring joinPath(const std::wstring& directory, const std::wstring& fileName) {
    const bool endsWithSeparator =
        !directory.empty() && directory.back() == wchar_t(FileSystem::separator);
    return endsWithSeparator ? directory + fileName
                             : directory + wchar_t(FileSystem::separator) + fileName;
}

}  // namespace

StreamLogChannel::StreamLogChannel(FILE* stream, const std::wstring& directory,
                                   const std::wstring& fileName)
    : _path(joinPath(directory, fileName)), _stream(stream) {}

StreamLogChannel::~StreamLogChannel() {
    restore();
    if (_logFile)
        std::fclose(_logFile);
}

std::wstring StreamLogChannel::openLogFile() {
    if (_logFile)
        return _path;
    const std::string file = StringHelper::toString(Platform::filesystem().getFilePath(_path));
    _logFile = std::fopen(file.c_str(), "w");
    if (!_logFile)
        return {};
    if (_redirector) {
        _redirector->setRestoreDescriptor(::fileno(_logFile));
    } else {
        StreamRedirector permanent(_stream, ::fileno(_logFile));
        permanent.setRestoreDescriptor(::fileno(_logFile));
    }
    return _path;
}

void StreamLogChannel::redirectToNullDevice() {
    _redirector.reset();
    _redirector =
        std::make_unique<StreamRedirector>(_stream, Platform::filesystem().nullDevicePath());
}

}  // namespace tolm
