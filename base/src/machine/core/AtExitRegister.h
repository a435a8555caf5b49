#pragma once

namespace tolm {

// Functions run when the process exits, through the runtime library's at-exit list, at most
// 32 of them. Code that needs live communicators tests isExiting() to skip its work once the
// exit has begun.
class AtExitRegister {
  public:
    static constexpr unsigned maxRegistrations = 32;

    static void registerFunction(void (*function)());
    static unsigned registeredCount() { return _nRegistered; }
    static void setExiting() { _exiting = true; }
    static bool isExiting() { return _exiting; }

  private:
    static unsigned _nRegistered;
    static bool _exiting;
};

}  // namespace tolm
