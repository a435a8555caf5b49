#include "platform/MemoryService.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>

namespace tolm {
namespace {

constexpr const char* statusPath = "/proc/self/status";
// The Vm lines come before the long signal and CPU-mask lines; this holds them with room for
// a long group list in front.
constexpr std::size_t statusBufferSize = 4096;

// The field of `usage` that a status line's key names, or nullptr.
std::uint64_t* fieldOf(std::string_view key, MemoryUsage& usage) {
    if (key == "VmSize")
        return &usage.virtualBytes;
    if (key == "VmRSS")
        return &usage.residentBytes;
    if (key == "VmLib")
        return &usage.libraryBytes;
    if (key == "VmPeak")
        return &usage.virtualPeakBytes;
    if (key == "VmHWM")
        return &usage.residentPeakBytes;
    return nullptr;
}

// The value of a "Key:   1234 kB" line's remainder (after the colon), in bytes; 0 if malformed.
std::uint64_t kilobytes(std::string_view value) {
    const std::size_t digits = value.find_first_not_of(" \t");
    if (digits == std::string_view::npos)
        return 0;
    std::uint64_t amount = 0;
    std::from_chars(value.data() + digits, value.data() + value.size(), amount);
    return amount * 1024;
}

}  // namespace

MemoryUsage MemoryService::parseStatus(std::string_view statusText) {
    MemoryUsage usage;
    while (!statusText.empty()) {
        const std::size_t end = statusText.find('\n');
        const std::string_view line = statusText.substr(0, end);
        statusText.remove_prefix(end == std::string_view::npos ? statusText.size() : end + 1);
        if (line.substr(0, 2) != "Vm")
            continue;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
            continue;
        if (std::uint64_t* field = fieldOf(line.substr(0, colon), usage))
            *field = kilobytes(line.substr(colon + 1));
    }
    return usage;
}

ProcessMemoryReader::ProcessMemoryReader()
    : _statusFile(::open(statusPath, O_RDONLY | O_CLOEXEC)), _owner(::getpid()) {}

ProcessMemoryReader::~ProcessMemoryReader() {
    if (_statusFile >= 0)
        ::close(_statusFile);
}

bool ProcessMemoryReader::read(MemoryUsage& usage) const {
    const bool own = _statusFile >= 0 && ::getpid() == _owner;
    const int file = own ? _statusFile : ::open(statusPath, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    // One read: the kernel renders the whole text for every read, so a second one for the
    // rest would cost as much again. A text longer than the buffer keeps its Vm lines.
    char buffer[statusBufferSize];
    const ssize_t length = ::pread(file, buffer, sizeof buffer, 0);
    if (!own)
        ::close(file);
    if (length <= 0)
        return false;
    const MemoryUsage parsed =
        MemoryService::parseStatus(std::string_view(buffer, std::size_t(length)));
    // A running process always has virtual memory: none means the text was not a status.
    if (parsed.virtualBytes == 0)
        return false;
    usage = parsed;
    return true;
}

MemoryUsage MemoryService::currentProcess() const {
    MemoryUsage usage;
    ProcessMemoryReader().read(usage);
    return usage;
}

std::uint64_t MemoryService::totalPhysicalBytes() const {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    return (pages > 0 && pageSize > 0) ? std::uint64_t(pages) * std::uint64_t(pageSize) : 0;
}

}  // namespace tolm
