#include "machine/core/ParallelPerformanceCritical.h"

#include <cctype>
#include <cstdio>

#include "neo/InternalError.h"
#include "neo/TolmVersion.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "platform/Thread.h"

namespace tolm {
namespace {

std::map<std::string, unsigned long>& exemptionCounts() {
    static std::map<std::string, unsigned long> counts;
    return counts;
}

void printLine(const char* line) {
    std::printf("%s\n", line);
}

}  // namespace

Machine::ParallelPerformanceCritical::ParallelPerformanceCritical() {
    if (Thread::isMain())
        ++_performanceCriticalLock;
}

Machine::ParallelPerformanceCritical::~ParallelPerformanceCritical() {
    if (!Thread::isMain())
        return;
    if (_performanceCriticalLock == 0) {
        printLine("Warning : PerformanceCritical lock out of synch..");
        std::fflush(stdout);
        return;
    }
    --_performanceCriticalLock;
}

Machine::ParallelPerformanceCritical::Exemption::Exemption() {
    if (!Thread::isMain())
        return;
    _savedCount = _performanceCriticalLock;
    _performanceCriticalLock = 0;
}

Machine::ParallelPerformanceCritical::Exemption::~Exemption() {
    if (Thread::isMain())
        _performanceCriticalLock += _savedCount;
}

Machine::ParallelPerformanceCritical::TemporaryExemption::TemporaryExemption(
    const std::string& jiraId)
    : _jiraId(jiraId) {
    if (TolmVersion::isDevelopmentVersion()) {
        TOLM_ASSERT(isJiraId(_jiraId),
                    "Badly constructed JIRA ID passed to "
                    "ParallelPerformanceCritical::TemporaryExemption!");
    }
    addExemption(*this);
    if (!Thread::isMain())
        return;
    _savedCount = _performanceCriticalLock;
    _performanceCriticalLock = 0;
}

Machine::ParallelPerformanceCritical::TemporaryExemption::~TemporaryExemption() {
    if (Thread::isMain())
        _performanceCriticalLock += _savedCount;
}

bool Machine::ParallelPerformanceCritical::TemporaryExemption::isJiraId(const std::string& id) {
    static const std::string prefix = "QMXP-";
    if (id.size() <= prefix.size() || id.compare(0, prefix.size(), prefix) != 0)
        return false;
    for (std::size_t i = prefix.size(); i < id.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(id[i])))
            return false;
    }
    return true;
}

void Machine::ParallelPerformanceCritical::TemporaryExemption::addExemption(
    const TemporaryExemption& exemption) {
    ++exemptionCounts()[exemption._jiraId];
}

const std::map<std::string, unsigned long>&
Machine::ParallelPerformanceCritical::TemporaryExemption::exemptions() {
    return exemptionCounts();
}

void Machine::ParallelPerformanceCritical::TemporaryExemption::printExemptions() {
    if (exemptionCounts().empty())
        return;
    printLine("Temporary exemptions from performance-critical sections:");
    for (const auto& [ticket, count] : exemptionCounts()) {
        std::printf("  %s: %lu time(s)\n", ticket.c_str(), count);
    }
    std::fflush(stdout);
}

bool& Machine::ParallelPerformanceCritical::TemporaryExemption::verbose() {
    static bool isVerbose = false;
    return isVerbose;
}

Observer& Machine::ParallelPerformanceCritical::TemporaryExemption::getExitObserver() {
    static FunctionObserver<> observer([] {
        if (verbose())
            printExemptions();
    });
    return observer;
}

void Machine::assertNotParallelPerformanceCritical(const char* where) {
    if (_performanceCriticalLock != 0)
        handleFailedPerformanceCriticalTest(where);
}

void Machine::handleFailedPerformanceCriticalTest(const char* where) {
    if (!getSingleton().hasDevErrorChecking() || !TolmVersion::isDevelopmentVersion() ||
        _performanceCriticalLock == 0) {
        return;
    }
    for (const char* line : {"PerformanceCriticalLock detected:",
                             "  This message is generated when communication is invoked",
                             "  in a performance critical section of code. Critical sections",
                             "  include Term::eval(FvBoundary&), Term::eval(FvRegion&).",
                             "  Communication should be moved outside the critical section",
                             "  using existing patterns such as a two-pass Term."}) {
        printLine(line);
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

}  // namespace tolm
