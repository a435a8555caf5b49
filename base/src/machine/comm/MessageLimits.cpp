#include "machine/comm/MessageLimits.h"

#include <string>

#include "machine/comm/Communicator.h"
#include "neo/InternalError.h"

namespace tolm {

void MessageLimits::throwInvalidCast(std::uint64_t value, std::uint64_t maximum) {
    const std::string message = std::string("Invalid integer cast.\n") +
                                "An oversized message size or displacement has been detected.\n" +
                                Communicator::_oversizedMessageHint + "\n" +
                                "Actual value = " + std::to_string(value) + "\n" +
                                "Max value = " + std::to_string(maximum);
    throw InternalError(message, "false", __FILE__, __LINE__);
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
