#include "machine/core/ExitStatus.h"

#include <stdexcept>

namespace tolm {

const char ExitStatus::_errorStrings[numberOfCodes + 1][errorStringLength] = {
    "Success",
    "Server error",
    "Invalid server argument",
    "File error",
    "",  // code 4 is reserved
    "Floating point error during last iteration",
    "Non-recoverable server error",
};

ExitStatus::ExitStatus(ErrorCode code) {
    set(code);
}

void ExitStatus::set(ErrorCode code) {
    if (code < 0 || code > static_cast<int>(numberOfCodes)) {
        throw std::out_of_range("invalid bitset<N> position");
    }
    if (code != SuccessCode)
        _flags.set(code - 1);
}

ExitStatus& ExitStatus::operator+=(const ExitStatus& other) {
    _flags |= other._flags;
    return *this;
}

std::string ExitStatus::getMessage() const {
    std::string message;
    for (const ErrorCode code :
         {InvalidArgumentCode, FileErrorCode, FloatingPointErrorCode, NonRecoverableErrorCode}) {
        if (!_flags.test(code - 1))
            continue;
        if (!message.empty())
            message += ",";
        message += _errorStrings[code];
    }
    return message;
}

}  // namespace tolm
