#pragma once
#include <map>
#include <string>
#include <utility>

namespace tolm {

// Counts and times named scopes of work ("category" / "name"), e.g. the stages of a command.
// Main thread only.
class EventTracker {
  public:
    struct Totals {
        unsigned long count = 0;
        double seconds = 0.0;
    };

    // Measures one scope: from construction to destruction.
    class Track {
      public:
        Track(const char* category, const char* name);
        ~Track();
        Track(const Track&) = delete;
        Track& operator=(const Track&) = delete;

      private:
        const char* _category;
        const char* _name;
        double _start;
    };

    static const std::map<std::pair<std::string, std::string>, Totals>& totals();
    static void reset();
};

}  // namespace tolm
