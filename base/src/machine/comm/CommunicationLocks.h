#pragma once
#include <cstdint>

#include "machine/comm/FieldLoopState.h"
#include "neo/Controller.h"
#include "platform/Thread.h"

namespace tolm {

// Whether this process may communicate right now. Communicating is a fault inside a
// serial-critical section (code that runs on one process only), a performance-critical section
// (a hot loop), a non-distributed command, a field loop, or off the main thread. The sections
// count their nesting here (main thread only); every Communicator operation asks `allowed`.
//
// Errors: `reportLockedOut` raises InternalError naming the lock; a performance-critical
// section is a fault only while development checks are enforced (development builds, unless
// "-xnodeverrors" turned them off).
class CommunicationLocks {
  public:
    static bool allowed() {
        return _serialCriticalLock == 0 && _performanceCriticalLock == 0 &&
               !Controller::isSerialCritical() && !FieldLoopState::busy() && Thread::isMain();
    }
    // Raises the error of the first lock that is held (see the class comment).
    static void reportLockedOut();
    // Prints why communicating in a performance-critical section is a fault and raises
    // InternalError naming `where`; does nothing when no section is open or the checks are off.
    static void reportPerformanceCritical(const char* where);

    static std::uint32_t serialCritical() { return _serialCriticalLock; }
    static std::uint32_t performanceCritical() { return _performanceCriticalLock; }
    static void setDevelopmentChecks(bool enforced) { _developmentChecks = enforced; }

    // The section guards' bookkeeping; main thread only.
    static void enterSerialCritical() { ++_serialCriticalLock; }
    static bool leaveSerialCritical();
    static void enterPerformanceCritical() { ++_performanceCriticalLock; }
    static bool leavePerformanceCritical();
    // Suspends every open performance-critical section; returns what `resume` restores.
    static std::uint32_t suspendPerformanceCritical();
    static void resumePerformanceCritical(std::uint32_t saved) { _performanceCriticalLock += saved; }

    static void reset();

  private:
    static inline std::uint32_t _serialCriticalLock = 0;
    static inline std::uint32_t _performanceCriticalLock = 0;
    static inline bool _developmentChecks = true;
};

}  // namespace tolm
