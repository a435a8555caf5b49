#include "machine/core/OptionValue.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "machine/core/OptionError.h"

namespace tolm {

float OptionValue::seconds(const std::string& option, const char* text) {
    char* end = nullptr;
    errno = 0;
    const float value = std::strtof(text, &end);
    if (end == text || *end != '\0' || errno == ERANGE || !std::isfinite(value))
        throw OptionError(option + " argument must be a number of seconds, not '" + text + "'");
    return value;
}

}  // namespace tolm
