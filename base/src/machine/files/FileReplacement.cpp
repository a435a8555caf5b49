#include "machine/files/FileReplacement.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tolm {

FileReplacement::FileReplacement(std::string target)
    : _target(std::move(target)), _temporary(temporaryPathOf(_target)) {}

FileReplacement::~FileReplacement() {
    discard();
}

std::string FileReplacement::commit() {
    if (std::rename(_temporary.c_str(), _target.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        discard();
        return "Cannot replace " + _target + ": " + reason;
    }
    _settled = true;
    return {};
}

void FileReplacement::discard() {
    if (_settled)
        return;
    _settled = true;
    std::remove(_temporary.c_str());
}

}  // namespace tolm
