#include "machine/core/MpiDriverTable.h"

#include <array>
#include <utility>

#include "machine/core/LauncherEnvironment.h"
#include "machine/core/OptionError.h"

namespace tolm {
namespace {

constexpr std::array<std::pair<const char*, const char*>, 10> drivers{{
    {"platform", "TolmPlatformMpi"},
    {"intel", "TolmIntelMpi"},
    {"ms", "TolmMsMpi"},
    {"msmpi", "TolmMsMpi"},
    {"openmpi3", "TolmOpenMpi3"},
    {"openmpi4", "TolmOpenMpi4"},
    {"spectrum", "TolmSpectrumMpi"},
    {"mpich2", "TolmMpich2Ch3"},
    {"hpe", "TolmHpeMpi"},
    {"crayxt7", "TolmCrayMpt7"},
}};

}  // namespace

std::string MpiDriverTable::libraryFor(const std::string& value) {
    if (value == AUTO) {
        const auto launcher = LauncherEnvironment::detect();
        return launcher ? libraryFor(launcher->driver) : DEFAULT_LIBRARY;
    }
    for (const auto& [name, library] : drivers) {
        if (value == name)
            return library;
    }
    throw OptionError("Unknown MPI driver: " + value);
}

std::vector<std::pair<std::string, std::string>> MpiDriverTable::entries() {
    return {drivers.begin(), drivers.end()};
}

std::string MpiDriverTable::libraryFromArguments(int argc, char** argv,
                                                 Machine::ArgumentMap& consumed) {
    for (int i = 1; i < argc; ++i) {
        if (!argv[i])
            continue;
        const std::string option = argv[i];
        if (option != "-mpi" && option != "-mpidriver")
            continue;
        if (i + 1 >= argc || !argv[i + 1])
            throw OptionError("Missing -mpidriver arg");
        consumed[option] = 2;
        return libraryFor(argv[i + 1]);
    }
    return DEFAULT_LIBRARY;
}

}  // namespace tolm
