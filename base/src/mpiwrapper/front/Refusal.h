// Stand-ins for the functions of the live tables while the driver cannot serve them (no driver
// yet, MPI not started or already finalized): they return a fixed wrapper code, or 0.0 for
// the clock functions, and touch nothing.
#pragma once

#include <type_traits>

namespace tolm::mpiwrapper {

template <int Code, class Function>
struct Refusal;

template <int Code, class Result, class... Args>
struct Refusal<Code, Result (*)(Args...)> {
    static Result call(Args...) noexcept {
        if constexpr (std::is_floating_point_v<Result>) {
            return Result{0};
        } else {
            return Code;
        }
    }
};

}  // namespace tolm::mpiwrapper
