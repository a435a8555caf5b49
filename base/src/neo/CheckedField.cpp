#include "neo/CheckedField.h"

#include <sstream>

#include "neo/Error.h"

namespace tolm {
namespace {

// A bound as a reader writes it: 3600, 0.5, 1e+30.
std::string boundText(double bound) {
    std::ostringstream text;
    text << bound;
    return text.str();
}

}  // namespace

double CheckedField::number(const Properties& command, std::string_view key, double low,
                            double high, double fallback) {
    const auto found = command.value().find(key);
    if (found == command.value().end())
        return fallback;
    const double held = found->is_number() ? found->get<double>() : 0.0;
    if (!found->is_number() || !(held >= low && held <= high))
        throwOutOfRange(key, "a number", boundText(low), boundText(high));
    return held;
}

void CheckedField::throwOutOfRange(std::string_view key, const char* kind,
                                   const std::string& low, const std::string& high) {
    throw Error("\"" + std::string(key) + "\" must be " + kind + " in " + low + ".." + high, 1);
}

}  // namespace tolm
