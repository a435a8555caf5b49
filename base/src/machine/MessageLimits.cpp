#include "machine/MessageLimits.h"

#include <string>

#include "machine/Communicator.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

[[noreturn]] void throwInvalidCast(std::uint64_t value, std::uint64_t maximum) {
    const std::string message = std::string("Invalid integer cast.\n") +
                                "An oversized message size or displacement has been detected.\n" +
                                Communicator::_oversizedMessageHint + "\n" +
                                "Actual value = " + std::to_string(value) + "\n" +
                                "Max value = " + std::to_string(maximum);
    throw InternalError(message, "false", __FILE__, __LINE__);
}

}  // namespace

int MessageLimits::toInt(std::uint64_t value) {
    if (value > maxIntCount)
        throwInvalidCast(value, maxIntCount);
    return static_cast<int>(value);
}

unsigned int MessageLimits::toUnsigned(std::uint64_t value) {
    if (value > maxUnsignedCount)
        throwInvalidCast(value, maxUnsignedCount);
    return static_cast<unsigned int>(value);
}

void MessageLimits::checkTotalCount(std::uint64_t total) {
    if (total <= maxUnsignedCount)
        return;
    const std::string message = std::string(Communicator::_oversizedMessageString) + "\n" +
                                "Message count = " + std::to_string(total) + "\n" +
                                "Max count = " + std::to_string(maxUnsignedCount) + ".\n" +
                                Communicator::_oversizedMessageHint;
    throw InternalError(message, "total <= 4294967295", __FILE__, __LINE__);
}

void MessageLimits::throwOversizedMessage(std::uint64_t count, std::uint64_t bytes) {
    const std::string message = std::string(Communicator::_oversizedMessageString) + "\n" +
                                "Message count = " + std::to_string(count) + "\n" +
                                "Message size = " + std::to_string(bytes) + "\n" +
                                "Max count = " + std::to_string(maxIntCount) + ".\n" +
                                Communicator::_oversizedMessageHint;
    throw InternalError(message, "!exceedsSizeLimits(count, elementSize)", __FILE__, __LINE__);
}

}  // namespace tolm
