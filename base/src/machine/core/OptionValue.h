#pragma once
#include <string>

namespace tolm {

// Reads option values that must be numbers: a value that is not one is the option's
// OptionError, never a silent default.
class OptionValue {
  public:
    OptionValue() = delete;

    // A finite decimal number (sign, fraction and exponent allowed, nothing after it);
    // OptionError "<option> argument must be a number of seconds, not '<text>'" otherwise.
    static float seconds(const std::string& option, const char* text);
};

}  // namespace tolm
