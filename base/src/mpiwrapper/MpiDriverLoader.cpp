#include "mpiwrapper/MpiDriverLoader.h"

#include <dlfcn.h>

#include <array>
#include <system_error>
#include <utility>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpiwrapper {

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 3> driverOptions = {{
    {"platform", "TolmPlatformMpi"},
    {"openmpi4", "TolmOpenMpi4"},
    {"mpich2", "TolmMpich2Ch3"},
}};

std::filesystem::path executableDirectory() {
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : executable.parent_path();
}

std::filesystem::path wrapperDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&QMX_MPI_Initialize), &info) == 0 || !info.dli_fname) {
        return {};
    }
    std::error_code error;
    const auto library = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::filesystem::path() : library.parent_path();
}

// RTLD_LOCAL keeps the driver's MPI out of the global symbol scope; a driver whose MPI needs
// global symbols promotes its own MPI library (see the driver's table getter). RTLD_NOW makes
// a driver with unresolved symbols fail here, with the loader's text, not at its first call.
void* openFile(const std::string& path, std::string& error) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* text = dlerror();
        error = text ? text : "cannot load " + path;
    }
    return handle;
}

}  // namespace

std::string MpiDriverLoader::libraryNameForOption(std::string_view option) {
    for (const auto& [value, library] : driverOptions) {
        if (value == option) {
            return std::string(library);
        }
    }
    return {};
}

std::string MpiDriverLoader::fileName(std::string_view libraryName) {
    return "lib" + std::string(libraryName) + ".so";
}

std::vector<std::filesystem::path> MpiDriverLoader::searchDirectories() {
    std::vector<std::filesystem::path> directories;
    for (auto directory : {executableDirectory(), wrapperDirectory()}) {
        if (!directory.empty() && (directories.empty() || directories.back() != directory)) {
            directories.push_back(std::move(directory));
        }
    }
    return directories;
}

// A file found in a searched directory is the one loaded, and its failure is reported: going
// on to another copy would hide a broken installation.
void* MpiDriverLoader::open(std::string_view libraryName, std::string& error) {
    const std::string file = fileName(libraryName);
    for (const auto& directory : searchDirectories()) {
        const auto candidate = directory / file;
        std::error_code ignored;
        if (std::filesystem::exists(candidate, ignored)) {
            return openFile(candidate.string(), error);
        }
    }
    return openFile(file, error);
}

void* MpiDriverLoader::openForOption(std::string_view option, std::string& error) {
    const std::string library = libraryNameForOption(option);
    if (library.empty()) {
        error = "Unknown MPI driver: " + std::string(option);
        return nullptr;
    }
    return open(library, error);
}

int MpiDriverLoader::initializeWrapper(void* handle) {
    if (int rc = QMX_MPI_Initialize(handle)) {
        return rc;
    }
    return QMX_MPIO_Initialize(handle);
}

}  // namespace tolm::mpiwrapper
