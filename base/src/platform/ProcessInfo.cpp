#include "platform/ProcessInfo.h"

#include <execinfo.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <memory>

namespace tolm {

int ProcessInfo::pid() const {
    return static_cast<int>(::getpid());
}

std::string ProcessInfo::hostName() const {
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof(name) - 1) != 0)
        return "localhost";
    return name;
}

std::optional<std::string> ProcessInfo::environment(const std::string& name) const {
    const char* value = std::getenv(name.c_str());
    if (!value)
        return std::nullopt;
    return std::string(value);
}

std::vector<std::string> ProcessInfo::backTrace(int skipFrames) const {
    constexpr int maxFrames = 64;
    void* frames[maxFrames];
    const int count = ::backtrace(frames, maxFrames);
    std::unique_ptr<char*, decltype(&std::free)> symbols(::backtrace_symbols(frames, count),
                                                         &std::free);
    std::vector<std::string> lines;
    if (!symbols)
        return lines;
    // Frame 0 is this function itself.
    for (int i = 1 + skipFrames; i < count; ++i)
        lines.emplace_back(symbols.get()[i]);
    return lines;
}

}  // namespace tolm
