#include "neo/EventTracker.h"

#include "platform/Platform.h"
#include "platform/TimeService.h"

namespace tolm {
namespace {

std::map<std::pair<std::string, std::string>, EventTracker::Totals>& table() {
    static std::map<std::pair<std::string, std::string>, EventTracker::Totals> totals;
    return totals;
}

}  // namespace

EventTracker::Track::Track(const char* category, const char* name)
    : _category(category), _name(name), _start(Platform::time().wallSeconds()) {}

EventTracker::Track::~Track() {
    auto& totals = table()[{_category, _name}];
    ++totals.count;
    totals.seconds += Platform::time().wallSeconds() - _start;
}

const std::map<std::pair<std::string, std::string>, EventTracker::Totals>& EventTracker::totals() {
    return table();
}

void EventTracker::reset() {
    table().clear();
}

}  // namespace tolm
