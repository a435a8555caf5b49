#include "machine/comm/CommunicationLocks.h"

#include <cstdio>

#include "neo/InternalError.h"
#include "neo/TolmVersion.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"

namespace tolm {
namespace {

// The guards are counted on the main thread only, so that the threads of a pool may
// communicate inside a section; a stray leave is reported, not counted below zero.
bool leave(std::uint32_t& counter, const char* warning) {
    if (!Thread::isMain())
        return true;
    if (counter == 0) {
        std::printf("%s\n", warning);
        std::fflush(stdout);
        return false;
    }
    --counter;
    return true;
}

}  // namespace

void CommunicationLocks::reportLockedOut() {
    if (_serialCriticalLock != 0) {
        throw InternalError("Parallel is explicitly locked", "! _serialCriticalLock", __FILE__,
                            __LINE__);
    }
    if (_performanceCriticalLock != 0)
        reportPerformanceCritical("Parallel locked out in performance critical section");
    TOLM_ASSERT(!Controller::isSerialCritical(),
                "Parallel has been explicitly locked whilst running a non-distributed command");
    TOLM_ASSERT(!FieldLoopState::busy(), "Parallel is explicitly locked out of FieldLoops");
    TOLM_ASSERT(Thread::isMain(), "Parallel messaging can only be called from the main thread");
}

void CommunicationLocks::reportPerformanceCritical(const char* where) {
    if (!_developmentChecks || !TolmVersion::isDevelopmentVersion() ||
        _performanceCriticalLock == 0) {
        return;
    }
    for (const char* line : {"PerformanceCriticalLock detected:",
                             "  This message is generated when communication is invoked",
                             "  in a performance critical section of code. Critical sections",
                             "  include Term::eval(FvBoundary&), Term::eval(FvRegion&).",
                             "  Communication should be moved outside the critical section",
                             "  using existing patterns such as a two-pass Term."}) {
        std::printf("%s\n", line);
    }
    const auto backTrace = Platform::process().backTrace(1);
    if (!backTrace.empty()) {
        std::string text;
        for (const auto& frame : backTrace)
            text += "\n  " + frame;
        std::printf("Back trace : %s\n", text.c_str());
    }
    std::fflush(stdout);
    TOLM_ASSERT(!_performanceCriticalLock,
                std::string("Communication in a performance critical section: ") + where);
}

bool CommunicationLocks::leaveSerialCritical() {
    return leave(_serialCriticalLock, "Warning : SerialCritical lock out of synch..");
}

bool CommunicationLocks::leavePerformanceCritical() {
    return leave(_performanceCriticalLock, "Warning : PerformanceCritical lock out of synch..");
}

std::uint32_t CommunicationLocks::suspendPerformanceCritical() {
    const std::uint32_t saved = _performanceCriticalLock;
    _performanceCriticalLock = 0;
    return saved;
}

void CommunicationLocks::reset() {
    _serialCriticalLock = 0;
    _performanceCriticalLock = 0;
    _developmentChecks = true;
}

}  // namespace tolm
