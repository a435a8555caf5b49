#pragma once
#include <string>
#include <utility>
#include <vector>

#include "machine/core/Machine.h"

namespace tolm {

// Which MPI wrapper driver library a job loads: "-mpi VALUE" or "-mpidriver VALUE" names it
// by a short value; without either the job uses "TolmPlatformMpi". "auto" takes the driver
// that matches the launcher found in the environment (LauncherEnvironment), the default
// where none is found.
class MpiDriverTable {
  public:
    static constexpr const char* DEFAULT_LIBRARY = "TolmPlatformMpi";
    static constexpr const char* AUTO = "auto";

    // The library for a short value; OptionError "Unknown MPI driver: <value>" otherwise.
    static std::string libraryFor(const std::string& value);
    // The table: (value, library) in the order values are tested.
    static std::vector<std::pair<std::string, std::string>> entries();
    // The library the arguments ask for, entering the option in `consumed`; OptionError
    // "Missing -mpidriver arg" when the option is the last entry.
    static std::string libraryFromArguments(int argc, char** argv, Machine::ArgumentMap& consumed);
};

}  // namespace tolm
