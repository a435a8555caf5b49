#include "neo/EventTracker.h"

#include "platform/Platform.h"
#include "platform/TimeService.h"

namespace tolm {
namespace {

EventTracker::Table& table() {
    static EventTracker::Table totals;
    return totals;
}

EventTracker::Totals& entry(const char* category, const char* name) {
    const EventTracker::KeyOrder::View key{category, name};
    auto found = table().find(key);
    if (found == table().end())
        found = table().emplace(EventTracker::Key{category, name}, EventTracker::Totals{}).first;
    return found->second;
}

}  // namespace

EventTracker::Track::Track(const char* category, const char* name)
    : _category(category), _name(name), _start(Platform::time().wallSeconds()) {}

EventTracker::Track::~Track() {
    auto& totals = entry(_category, _name);
    ++totals.count;
    totals.seconds += Platform::time().wallSeconds() - _start;
}

const EventTracker::Table& EventTracker::totals() {
    return table();
}

void EventTracker::reset() {
    table().clear();
}

}  // namespace tolm
