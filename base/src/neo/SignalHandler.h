#pragma once

namespace tolm {

// Process signal handling.
// - Floating-point signals: when caught, the processor traps division by zero, invalid
//   operations and overflow; the trap prints "Error: Floating point exception (SIGFPE)" on
//   standard error and ends the process at once with the configured exit code.
// - Termination signals (SIGINT, SIGTERM, SIGHUP): recorded, and taken by the command loop
//   between two commands.
class SignalHandler {
  public:
    static bool _catchFpeSignals;

    static void setCatchFpeSignals(bool catchSignals);
    static void setFpeExitCode(int code);

    static void catchTerminationSignals();
    // The last termination signal seen since the previous call, or 0.
    static int takePendingSignal();
};

}  // namespace tolm
