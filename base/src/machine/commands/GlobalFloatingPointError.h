#pragma once
#include <string>

namespace tolm {

class Communicator;

// The floating-point error logged on this process, and the collective decision on it: when
// any process logged one, every process raises the same Error listing all of them. Any thread
// may log; the check is collective and runs on the main thread.
class GlobalFloatingPointError {
  public:
    // Keeps the first text logged until the check clears it; an empty text is logged as
    // "The specific FP error cause cannot be identified.".
    static void logError(const std::string& text);
    static bool hasLoggedError();
    // Collective over the processes of `over` (all processes when null): throws the same
    // Error everywhere when any process logged.
    static void assertNoError(Communicator* over = nullptr);
};

}  // namespace tolm
