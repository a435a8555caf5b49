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

const std::string& driverOption() {
    return driver;
}

void* loadDriverOrExit() {
    std::string error;
    void* handle = mpiwrapper::MpiDriverLoader::openForOption(driver, error);
    const int rc = handle ? mpiwrapper::MpiDriverLoader::initializeWrapper(handle) : 0;
    if (!handle || rc != QMX_MPI_SUCCESS) {
        std::fprintf(stderr, "Cannot use the MPI driver of -mpi %s: %s\n", driver.c_str(),
                     handle ? qmxErrorText(rc).c_str() : error.c_str());
        std::exit(2);
    }
    return handle;
}

}  // namespace tolm::mpitest
