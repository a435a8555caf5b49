#pragma once
#include <string>

namespace tolm {

class CommandController;
class Communicator;

// Whoever holds one may run the collective floating-point check of a command.
class AssertNoFpeAccessKey {
    AssertNoFpeAccessKey() = default;
    friend class CommandController;
    friend class FpeCheckAccess;  // the tests' way in
};

// The processor's floating-point status flags (division by zero, invalid operation,
// overflow) read and recorded at fixed points. Nothing is read while an isolated context is
// active or while floating-point signals are caught (the trap has ended the process already).
class GlobalFloatingPointExceptionStatus {
public:
    // Logs the status with `context` (or with "the specific cause cannot be identified") and
    // clears it, when it is not clear.
    static void TestAndSaveLocalContext(const char* context);
    static void TestAndSaveLocalContext(const std::string& context);
    // Logs an uncleared status, then makes the collective decision among the processes of
    // `over` (all processes when null).
    static void AssertNoException(AssertNoFpeAccessKey key, Communicator* over = nullptr);

private:
    static bool statusIsReadable();
};

}  // namespace tolm
