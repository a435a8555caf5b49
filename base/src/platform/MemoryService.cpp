#include "platform/MemoryService.h"

#include <unistd.h>

#include <charconv>
#include <string>

#include "platform/FileSystem.h"
#include "platform/Platform.h"

namespace tolm {
namespace {

// Value of a "Key:   1234 kB" line, in bytes; 0 when the key is absent or malformed.
std::uint64_t kilobytesField(std::string_view text, std::string_view key) {
    std::size_t at = 0;
    while ((at = text.find(key, at)) != std::string_view::npos) {
        const bool lineStart = at == 0 || text[at - 1] == '\n';
        const std::size_t colon = at + key.size();
        if (lineStart && colon < text.size() && text[colon] == ':') {
            std::size_t digits = text.find_first_not_of(" \t", colon + 1);
            if (digits == std::string_view::npos)
                return 0;
            std::uint64_t kilobytes = 0;
            std::from_chars(text.data() + digits, text.data() + text.size(), kilobytes);
            return kilobytes * 1024;
        }
        at = colon;
    }
    return 0;
}

}  // namespace

MemoryUsage MemoryService::parseStatus(std::string_view statusText) {
    MemoryUsage usage;
    usage.virtualBytes = kilobytesField(statusText, "VmSize");
    usage.residentBytes = kilobytesField(statusText, "VmRSS");
    usage.libraryBytes = kilobytesField(statusText, "VmLib");
    usage.virtualPeakBytes = kilobytesField(statusText, "VmPeak");
    usage.residentPeakBytes = kilobytesField(statusText, "VmHWM");
    return usage;
}

MemoryUsage MemoryService::currentProcess() const {
    std::string status;
    if (!Platform::filesystem().readFile("/proc/self/status", status))
        return {};
    return parseStatus(status);
}

std::uint64_t MemoryService::totalPhysicalBytes() const {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    return (pages > 0 && pageSize > 0) ? std::uint64_t(pages) * std::uint64_t(pageSize) : 0;
}

}  // namespace tolm
