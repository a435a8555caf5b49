#pragma once
#include <bitset>
#include <cstdint>
#include <string>

namespace tolm {

// The classes of failure seen during a run, one flag per error code; code k is bit k-1. The
// integer value is the process's exit code, so no class of failure is lost in it.
class ExitStatus {
  public:
    // A fixed underlying type: any int is a value of the type, so a bad code can be caught.
    enum ErrorCode : int {
        SuccessCode = 0,
        ServerErrorCode = 1,
        InvalidArgumentCode = 2,
        FileErrorCode = 3,
        FloatingPointErrorCode = 5,
        NonRecoverableErrorCode = 6,
    };

    ExitStatus() = default;
    // A status holding `code` alone (nothing for SuccessCode). A code outside 0..6 throws
    // std::out_of_range "invalid bitset<N> position".
    ExitStatus(ErrorCode code);  // NOLINT(google-explicit-constructor): statuses are codes

    ExitStatus& operator+=(const ExitStatus& other);
    bool hasError() const { return _flags.any(); }
    operator int() const { return static_cast<int>(_flags.to_ulong()); }  // NOLINT
    // The texts of the codes held, ascending, joined by ","; code 1 contributes none.
    std::string getMessage() const;

  private:
    static constexpr std::size_t numberOfCodes = 6;
    static constexpr std::size_t errorStringLength = 1024;
    static const char _errorStrings[numberOfCodes + 1][errorStringLength];

    void set(ErrorCode code);

    std::bitset<32> _flags;
};

}  // namespace tolm
