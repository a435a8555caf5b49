#pragma once
#include <cstdint>
#include <string_view>

namespace tolm {

// Memory figures of one process, in bytes.
struct MemoryUsage {
    std::uint64_t virtualBytes = 0;
    std::uint64_t residentBytes = 0;
    std::uint64_t libraryBytes = 0;       // mapped shared-library code
    std::uint64_t virtualPeakBytes = 0;   // high-water mark of virtualBytes
    std::uint64_t residentPeakBytes = 0;  // high-water mark of residentBytes
};

// Reads memory figures from the Linux proc file system.
class MemoryService {
  public:
    // This process's figures; all zero when /proc cannot be read.
    MemoryUsage currentProcess() const;
    // Physical memory of the host.
    std::uint64_t totalPhysicalBytes() const;
    // Parses the text of /proc/<pid>/status (fields VmSize, VmRSS, VmLib, VmPeak, VmHWM).
    static MemoryUsage parseStatus(std::string_view statusText);
};

}  // namespace tolm
