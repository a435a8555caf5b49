#include "support/MpiTestOptions.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "mpiwrapper/MpiDriverLoader.h"
#include "support/QmxAssertions.h"

namespace tolm::mpitest {

namespace {

std::string driver = "platform";

}  // namespace

void takeDriverOption(int& argc, char** argv) {
    int out = 1;
    for (int in = 1; in < argc; ++in) {
        if (std::string_view(argv[in]) == "-mpi" && in + 1 < argc) {
            driver = argv[++in];
        } else {
            argv[out++] = argv[in];
        }
    }
    argc = out;
    argv[argc] = nullptr;
}

const std::string& driverOption() { return driver; }

void* loadDriverOrExit() {
    const std::string library = mpiwrapper::MpiDriverLoader::libraryNameForOption(driver);
    if (library.empty()) {
        std::fprintf(stderr, "Unknown MPI driver \"%s\" given with -mpi\n", driver.c_str());
        std::exit(2);
    }
    std::string error;
    void* handle = mpiwrapper::MpiDriverLoader::open(library, error);
    if (!handle) {
        std::fprintf(stderr, "Cannot load MPI driver %s: %s\n", library.c_str(), error.c_str());
        std::exit(2);
    }
    if (const int rc = mpiwrapper::MpiDriverLoader::initializeWrapper(handle)) {
        std::fprintf(stderr, "The MPI wrapper refused driver %s: %s\n", library.c_str(),
                     qmxErrorText(rc).c_str());
        std::exit(2);
    }
    return handle;
}

}  // namespace tolm::mpitest
