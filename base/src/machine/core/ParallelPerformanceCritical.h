#pragma once
#include <map>
#include <string>

#include "machine/core/Machine.h"

namespace tolm {

// Marks a stretch of code in which communicating is a design fault (a hot loop). Guards nest;
// the section ends with the outermost guard. Counting happens on the main thread only, so the
// threads of a thread pool may communicate inside a section without tripping it.
// Communication entry points call Machine::assertNotParallelPerformanceCritical, which fails
// in development builds with dev error checking on.
class Machine::ParallelPerformanceCritical {
  public:
    ParallelPerformanceCritical();
    ~ParallelPerformanceCritical();
    ParallelPerformanceCritical(const ParallelPerformanceCritical&) = delete;
    ParallelPerformanceCritical& operator=(const ParallelPerformanceCritical&) = delete;

    class Exemption;
    class TemporaryExemption;
};

// Suspends every enclosing section for its own lifetime.
class Machine::ParallelPerformanceCritical::Exemption {
  public:
    Exemption();
    ~Exemption();
    Exemption(const Exemption&) = delete;
    Exemption& operator=(const Exemption&) = delete;

  private:
    std::uint32_t _savedCount = 0;
};

// An exemption granted until the ticket that names it is fixed. Development builds check the
// ticket id ("QMXP-" and the ticket number) and count the exemptions made per ticket; in
// verbose mode they are printed when the run ends.
class Machine::ParallelPerformanceCritical::TemporaryExemption {
  public:
    explicit TemporaryExemption(const std::string& jiraId);
    ~TemporaryExemption();
    TemporaryExemption(const TemporaryExemption&) = delete;
    TemporaryExemption& operator=(const TemporaryExemption&) = delete;

    static bool isJiraId(const std::string& id);
    static void addExemption(const TemporaryExemption& exemption);
    static const std::map<std::string, unsigned long>& exemptions();
    static void printExemptions();
    static bool& verbose();
    // Prints the exemptions when the run ends; attached to the machine's exit observable.
    static Observer& getExitObserver();

  private:
    std::string _jiraId;
    std::uint32_t _savedCount = 0;
};

}  // namespace tolm
