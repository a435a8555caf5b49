#include "machine/files/StreamRedirector.h"

#include <unistd.h>

#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"

namespace tolm {

StreamRedirector::StreamRedirector(FILE* stream, const std::wstring& path)
    : _stream(stream), _descriptor(::fileno(stream)) {
    redirectToFile(path);
}

StreamRedirector::StreamRedirector(FILE* stream, const int& target)
    : _stream(stream), _descriptor(::fileno(stream)) {
    redirect(target);
}

StreamRedirector::~StreamRedirector() {
    ::dup2(_restoreDescriptor, _descriptor);
    ::close(_restoreDescriptor);
}

void StreamRedirector::setRestoreDescriptor(int descriptor) {
    ::close(_restoreDescriptor);
    _restoreDescriptor = ::dup(descriptor);
}

void StreamRedirector::redirectToFile(const std::wstring& path) {
    const std::string file = StringHelper::toString(Platform::filesystem().getFilePath(path));
    FILE* target = std::fopen(file.c_str(), "w");
    if (!target) {
        // Nothing to redirect to: keep the stream where it is rather than lose it.
        _restoreDescriptor = ::dup(_descriptor);
        return;
    }
    redirect(::fileno(target));
    std::fclose(target);  // the stream's descriptor keeps the file open
}

void StreamRedirector::redirect(int target) {
    std::fflush(_stream);
    _restoreDescriptor = ::dup(_descriptor);
    ::dup2(target, _descriptor);
}

}  // namespace tolm
