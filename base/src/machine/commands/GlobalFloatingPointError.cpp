#include "machine/commands/GlobalFloatingPointError.h"

#include <atomic>
#include <mutex>
#include <set>

#include "machine/comm/Communicator.h"
#include "machine/commands/GlobalCondition.h"
#include "machine/commands/GlobalFloatingPointExceptionStatus.h"
#include "machine/hybrid/HybridMpiThreadContext.h"
#include "machine/core/Machine.h"
#include "neo/Error.h"
#include "neo/InternalError.h"
#include "neo/TolmVersion.h"

namespace tolm {
namespace {

std::mutex& loggedMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& logged() {
    static std::string text;
    return text;
}

// Whether a text is logged, readable without the mutex: the check after every command only
// needs this.
std::atomic<bool>& anyLogged() {
    static std::atomic<bool> flag{false};
    return flag;
}

std::string takeLogged() {
    std::lock_guard lock(loggedMutex());
    anyLogged() = false;
    return std::exchange(logged(), std::string());
}

std::string messageFor(const std::set<std::string>& entries) {
    std::string message = "A floating point error has occurred. The following ";
    message += entries.size() == 1 ? "error has" : "errors have";
    message += " been logged:";
    int number = 0;
    for (const auto& entry : entries) {
        message += entries.size() == 1 ? "\n  " : "\n  " + std::to_string(++number) + ". ";
        message += entry;
    }
    return message + "\nPlease refer to the troubleshooting section of the User's Guide.";
}

}  // namespace

void GlobalFloatingPointError::logError(const std::string& text) {
    std::lock_guard lock(loggedMutex());
    if (!logged().empty())
        return;
    logged() = text.empty() ? "The specific FP error cause cannot be identified." : text;
    anyLogged() = true;
}

bool GlobalFloatingPointError::hasLoggedError() {
    return anyLogged();
}

void GlobalFloatingPointError::assertNoError(Communicator* over) {
    if (Machine::getSerialCriticalLock() != 0) {
        throw InternalError(
            "Cannot check global floating point error status in serial critical code. The "
            "status check must be called collectively on all processes.",
            "! _serialCriticalLock", __FILE__, __LINE__);
    }
    TOLM_ASSERT(!HybridMpiThreadContext::isActive(),
                "Cannot check global floating point error status from within a hybrid MPI "
                "thread context. The status check must be called collectively on all "
                "processes.");
    if (TolmVersion::isDevelopmentVersion()) {
        GlobalFloatingPointExceptionStatus::TestAndSaveLocalContext(
            "Unexpected FPE. If you see this message, please report to the HPC group.");
    } else {
        GlobalFloatingPointExceptionStatus::TestAndSaveLocalContext(nullptr);
    }
    if (Machine::isParallel() && !over)
        over = Machine::globalCommunicator();
    if (!(over ? GlobalCondition(hasLoggedError(), GlobalCondition::ON_ANY, *over)
               : GlobalCondition(hasLoggedError(), GlobalCondition::ON_ANY)))
        return;

    std::set<std::string> entries;
    if (const std::string mine = takeLogged(); !mine.empty())
        entries.insert(mine);
    if (Machine::isParallel()) {
        std::set<std::string> all;
        over->allGather(entries, all);
        entries = std::move(all);
    }
    Error error(messageFor(entries), 2);
    error.setCollective(true);
    throw error;
}

}  // namespace tolm
