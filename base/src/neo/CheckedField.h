#pragma once
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "neo/Properties.h"

namespace tolm {

// Numeric fields of a command, read with their type and range checked: a value of another
// type, a fraction where an integer is wanted, or a value outside low..high is an `Error`
// naming the field and its range, e.g. "\"n\" must be an integer in 1..8192". Nothing wraps
// or is cut short on its way to a narrower type.
class CheckedField {
  public:
    template <std::integral T>
    static T integer(const Properties& command, std::string_view key, T low, T high);
    template <std::integral T>
    static T integer(const Properties& command, std::string_view key, T low, T high,
                     T fallback) {
        return command.has(key) ? integer(command, key, low, high) : fallback;
    }
    template <std::integral T>
    static std::vector<T> integerList(const Properties& command, std::string_view key, T low,
                                      T high);
    static double number(const Properties& command, std::string_view key, double low,
                         double high, double fallback);

  private:
    template <std::integral T>
    static bool holdsIntegerIn(const Properties::Value& value, T low, T high);
    [[noreturn]] static void throwOutOfRange(std::string_view key, const char* kind,
                                             const std::string& low, const std::string& high);
};

template <std::integral T>
bool CheckedField::holdsIntegerIn(const Properties::Value& value, T low, T high) {
    if (value.is_number_unsigned()) {
        const auto held = value.get<std::uint64_t>();
        return std::cmp_greater_equal(held, low) && std::cmp_less_equal(held, high);
    }
    if (value.is_number_integer()) {
        const auto held = value.get<std::int64_t>();
        return std::cmp_greater_equal(held, low) && std::cmp_less_equal(held, high);
    }
    return false;
}

template <std::integral T>
T CheckedField::integer(const Properties& command, std::string_view key, T low, T high) {
    const auto found = command.value().find(key);
    if (found == command.value().end() || !holdsIntegerIn(*found, low, high))
        throwOutOfRange(key, "an integer", std::to_string(low), std::to_string(high));
    return found->template get<T>();
}

template <std::integral T>
std::vector<T> CheckedField::integerList(const Properties& command, std::string_view key, T low,
                                         T high) {
    const auto found = command.value().find(key);
    bool valid = found != command.value().end() && found->is_array();
    std::vector<T> list;
    for (std::size_t i = 0; valid && i < found->size(); ++i) {
        valid = holdsIntegerIn((*found)[i], low, high);
        if (valid)
            list.push_back((*found)[i].template get<T>());
    }
    if (!valid)
        throwOutOfRange(key, "a list of integers", std::to_string(low), std::to_string(high));
    return list;
}

}  // namespace tolm
