#include "platform/SystemErrors.h"

#include <cerrno>
#include <cstring>

namespace tolm {

std::string SystemErrors::text(int code) const {
    char buffer[256] = {};
    // GNU strerror_r may return a static string instead of filling the buffer.
    const char* message = ::strerror_r(code, buffer, sizeof(buffer));
    return message ? message : buffer;
}

std::string SystemErrors::lastErrorText() const {
    return text(errno);
}

}  // namespace tolm
