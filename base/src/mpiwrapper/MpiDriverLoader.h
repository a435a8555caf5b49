// Finds and opens an MPI driver library by its library name, the way the machine layer does:
// the file lib<Name>.so is looked for next to the running executable, then in the directory of
// TolmMpiWrapper itself (the install's library directory), then through the dynamic loader's
// own search path. Used by the MPI tests and benchmarks.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tolm::mpiwrapper {

class __attribute__((visibility("default"))) MpiDriverLoader {
  public:
    // The library name for a value of the "-mpi" option ("openmpi4" gives "TolmOpenMpi4",
    // "mpich2" "TolmMpich2Ch3", "platform" "TolmPlatformMpi"); empty for any other value.
    static std::string libraryNameForOption(std::string_view option);

    // "lib" + libraryName + ".so".
    static std::string fileName(std::string_view libraryName);

    // The directories searched before the loader's own path, in order.
    static std::vector<std::filesystem::path> searchDirectories();

    // Opens the driver (RTLD_NOW | RTLD_LOCAL). Returns the handle, or nullptr with the
    // loader's text in error.
    static void* open(std::string_view libraryName, std::string& error);

    // open() of the library for a "-mpi" value; an unknown value fails with the error
    // "Unknown MPI driver: " and the value.
    static void* openForOption(std::string_view option, std::string& error);

    // Hands the opened driver to the wrapper: QMX_MPI_Initialize, then QMX_MPIO_Initialize.
    // Returns the first non-zero QMX code, or QMX_MPI_SUCCESS.
    static int initializeWrapper(void* handle);
};

}  // namespace tolm::mpiwrapper
