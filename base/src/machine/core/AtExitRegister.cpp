#include "machine/core/AtExitRegister.h"

#include <cstdlib>

#include "neo/InternalError.h"

namespace tolm {

unsigned AtExitRegister::_nRegistered = 0;
bool AtExitRegister::_exiting = false;

void AtExitRegister::registerFunction(void (*function)()) {
    TOLM_ASSERT(_nRegistered < maxRegistrations,
                "Exhausted default limit on number of atexit functions");
    TOLM_ASSERT(std::atexit(function) == 0, "The runtime library refused an atexit function");
    ++_nRegistered;
}

}  // namespace tolm
