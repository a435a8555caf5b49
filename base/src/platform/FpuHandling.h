#pragma once
#include <string>

namespace tolm::FpuHandling {

// Restores the default floating-point environment: round to nearest, no traps, flags clear.
void resetEnvironment();

// The sticky exception flags of interest: division by zero, invalid operation, overflow.
bool isFpeStatusClear();
// The raised flags as text, e.g. "Floating point division by zero, floating point overflow".
std::string getFpeStatusAsString();
void clearFpeStatus();

// Turns trapping (SIGFPE) of those exceptions on or off.
void enableTraps(bool enable);

}  // namespace tolm::FpuHandling
