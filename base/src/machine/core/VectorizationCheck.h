#pragma once
#include <string>
#include <vector>

namespace tolm {

// Start-up's check that every process of a job runs code of the same vector width: processes
// whose processors report different vectorization levels (Chip::vectorizationLevel) can
// compute different results from the same data.
class VectorizationCheck {
  public:
    VectorizationCheck() = delete;

    // The warning, one message.
    static const char* const WARNING;

    // The warning when `levels` (one per process) are not all equal, else "".
    static std::string warningFor(const std::vector<std::string>& levels);
    // Gathers every process's level to the master, who prints the warning on standard error
    // when they differ. Collective over the global communicator; nothing in a serial run.
    static void run();
};

}  // namespace tolm
