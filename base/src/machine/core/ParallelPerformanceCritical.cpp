#include "machine/core/ParallelPerformanceCritical.h"

#include <cctype>
#include <cstdio>

#include "machine/comm/CommunicationLocks.h"
#include "neo/InternalError.h"
#include "neo/TolmVersion.h"

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
        CommunicationLocks::enterPerformanceCritical();
}

Machine::ParallelPerformanceCritical::~ParallelPerformanceCritical() {
    CommunicationLocks::leavePerformanceCritical();
}

Machine::ParallelPerformanceCritical::Exemption::Exemption() {
    if (Thread::isMain())
        _savedCount = CommunicationLocks::suspendPerformanceCritical();
}

Machine::ParallelPerformanceCritical::Exemption::~Exemption() {
    if (Thread::isMain())
        CommunicationLocks::resumePerformanceCritical(_savedCount);
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
    if (Thread::isMain())
        _savedCount = CommunicationLocks::suspendPerformanceCritical();
}

Machine::ParallelPerformanceCritical::TemporaryExemption::~TemporaryExemption() {
    if (Thread::isMain())
        CommunicationLocks::resumePerformanceCritical(_savedCount);
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
    CommunicationLocks::reportPerformanceCritical(where);
}

}  // namespace tolm
