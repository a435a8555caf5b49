#include "platform/FpuHandling.h"

#include <cfenv>

namespace tolm::FpuHandling {
namespace {

constexpr int watchedExceptions = FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW;

}  // namespace

void resetEnvironment() {
    std::fesetenv(FE_DFL_ENV);
    std::feclearexcept(FE_ALL_EXCEPT);
}

bool isFpeStatusClear() {
    return std::fetestexcept(watchedExceptions) == 0;
}

std::string getFpeStatusAsString() {
    const int raised = std::fetestexcept(watchedExceptions);
    std::string text;
    const auto add = [&](int flag, const char* name) {
        if (!(raised & flag))
            return;
        if (!text.empty())
            text += ", ";
        text += name;
    };
    add(FE_DIVBYZERO, "Floating point division by zero");
    add(FE_INVALID, "Floating point invalid operation");
    add(FE_OVERFLOW, "Floating point overflow");
    return text;
}

void clearFpeStatus() {
    std::feclearexcept(watchedExceptions);
}

void enableTraps(bool enable) {
    if (enable) {
        std::feclearexcept(watchedExceptions);
        ::feenableexcept(watchedExceptions);
    } else {
        ::fedisableexcept(watchedExceptions);
    }
}

}  // namespace tolm::FpuHandling
