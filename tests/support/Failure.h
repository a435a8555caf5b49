#pragma once
// What an action throws, as text, so that a test compares a whole failure in one expectation.
#include <exception>
#include <functional>
#include <string>

#include "neo/InternalError.h"

namespace tolm::test {

// "message | condition" of the InternalError that `action` throws; "no failure" when none.
inline std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const InternalError& error) {
        return error.what() + std::string(" | ") + error.getCondition();
    }
    return "no failure";
}

// The message of the exception of type E that `action` throws; "no failure" when none. An
// exception of another type is left to fail the test.
template <typename E = std::exception>
std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const E& error) {
        return error.what();
    }
    return "no failure";
}

}  // namespace tolm::test
