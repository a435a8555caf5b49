#pragma once
#include <sys/types.h>

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

// Reads this process's memory figures over and over at the least cost: /proc/self/status
// stays open and each reading is one pread from its start into a buffer on the stack, parsed
// in place (no allocation). The kernel renders the file afresh on every read from offset 0.
// Safe to use from several threads. In a child forked from the process that opened it, the
// open file would show the parent, so there each reading opens the child's own.
class ProcessMemoryReader {
  public:
    ProcessMemoryReader();
    ~ProcessMemoryReader();
    ProcessMemoryReader(const ProcessMemoryReader&) = delete;
    ProcessMemoryReader& operator=(const ProcessMemoryReader&) = delete;

    // This process's figures; false (and `usage` untouched) when /proc cannot be read.
    bool read(MemoryUsage& usage) const;

  private:
    int _statusFile = -1;
    pid_t _owner = 0;  // the process that opened _statusFile
};

// Reads memory figures from the Linux proc file system.
class MemoryService {
  public:
    // This process's figures; all zero when /proc cannot be read. A one-off reading: code
    // that reads again and again keeps a ProcessMemoryReader.
    MemoryUsage currentProcess() const;
    // Physical memory of the host.
    std::uint64_t totalPhysicalBytes() const;
    // Parses the text of /proc/<pid>/status (fields VmSize, VmRSS, VmLib, VmPeak, VmHWM);
    // virtualBytes is 0 when VmSize is missing.
    static MemoryUsage parseStatus(std::string_view statusText);
};

}  // namespace tolm
