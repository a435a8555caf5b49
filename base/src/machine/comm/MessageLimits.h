#pragma once
#include <cstdint>

namespace tolm {

// The size guards of communication: counts handed to MPI are narrowed with a check, and a
// message too large for one call is reported in words a user can act on. Every failure is an
// InternalError whose message names the values involved.
class MessageLimits {
  public:
    static constexpr std::uint64_t maxIntCount = 2147483647ull;
    static constexpr std::uint64_t maxUnsignedCount = 4294967295ull;

    // `value` as a 32-bit signed / unsigned count ("Invalid integer cast." otherwise). Inline:
    // every message's count passes here.
    static int toInt(std::uint64_t value) {
        if (value > maxIntCount) [[unlikely]]
            throwInvalidCast(value, maxIntCount);
        return static_cast<int>(value);
    }
    static unsigned int toUnsigned(std::uint64_t value) {
        if (value > maxUnsignedCount) [[unlikely]]
            throwInvalidCast(value, maxUnsignedCount);
        return static_cast<unsigned int>(value);
    }
    // Fails when a sum of per-rank counts is above the unsigned 32-bit range.
    static void checkTotalCount(std::uint64_t total);
    // Fails for one message that is still too large after splitting.
    [[noreturn]] static void throwOversizedMessage(std::uint64_t count, std::uint64_t bytes);

  private:
    [[noreturn]] static void throwInvalidCast(std::uint64_t value, std::uint64_t maximum);
};

}  // namespace tolm
