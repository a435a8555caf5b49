#pragma once
#include <ctime>
#include <string>

namespace tolm {

// Clocks of the process.
class TimeService {
  public:
    // Seconds on a monotonic wall clock (origin unspecified; use differences).
    double wallSeconds() const;
    // User plus system CPU seconds of the whole process, and of the calling thread.
    double processCpuSeconds() const;
    double threadCpuSeconds() const;
    // A moment in local time as asctime renders it, without the trailing newline.
    std::string localTimeText(std::time_t moment) const;
};

}  // namespace tolm
