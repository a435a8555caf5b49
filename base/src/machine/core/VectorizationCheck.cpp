#include "machine/core/VectorizationCheck.h"

#include <algorithm>
#include <cstdio>
#include <functional>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "platform/Chip.h"
#include "platform/Platform.h"

namespace tolm {

const char* const VectorizationCheck::WARNING =
    "Warning: The set of hardware resources has mixed vectorization capabilities. "
    "This can lead to numerical issues (see \"Avoid Using Mixed-Vector Hardware in a Single "
    "Parallel Job\" in the User's Guide). In case of such, the command line flag \"-xbuildopt "
    "standard\" can be passed to force the lowest vectorization level on all hosts for "
    "Orvane TOLM-QMX+ server code. Note that this setting can potentially slow down "
    "execution and does not apply to potential vectorization of third-party libraries, so "
    "further issues might arise.";

std::string VectorizationCheck::warningFor(const std::vector<std::string>& levels) {
    const bool mixed =
        std::adjacent_find(levels.begin(), levels.end(), std::not_equal_to<>()) != levels.end();
    return mixed ? WARNING : "";
}

void VectorizationCheck::run() {
    if (!Machine::isParallel())
        return;
    std::vector<std::string> levels;
    Machine::globalCommunicator()->gather(Platform::chip().vectorizationLevel(), levels, 0);
    const std::string warning = warningFor(levels);
    if (Machine::isMaster() && !warning.empty()) {
        std::fprintf(stderr, "%s\n", warning.c_str());
        std::fflush(stderr);
    }
}

}  // namespace tolm
