#pragma once
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

#include "machine/AffinityMask.h"

namespace tolm {

// Lets GoogleTest print masks in failure messages.
inline void PrintTo(const AffinityMask& mask, std::ostream* out) { *out << mask.toHexString(0); }

namespace test {

inline AffinityMask maskOf(std::initializer_list<unsigned> lpus) {
    AffinityMask mask;
    for (unsigned lpu : lpus) mask.set(lpu);
    return mask;
}

inline std::vector<unsigned> lpusOf(const AffinityMask& mask) { return {mask.begin(), mask.end()}; }

}  // namespace test
}  // namespace tolm
