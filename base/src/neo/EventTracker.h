#pragma once
#include <map>
#include <string>
#include <string_view>
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

    // Category and name; looked up without building strings, so a scope costs no allocation
    // once its entry exists.
    using Key = std::pair<std::string, std::string>;
    struct KeyOrder {
        using is_transparent = void;
        using View = std::pair<std::string_view, std::string_view>;
        static View view(const Key& key) { return {key.first, key.second}; }
        static const View& view(const View& key) { return key; }
        template <typename A, typename B>
        bool operator()(const A& a, const B& b) const {
            return view(a) < view(b);
        }
    };
    using Table = std::map<Key, Totals, KeyOrder>;

    static const Table& totals();
    static void reset();
};

}  // namespace tolm
