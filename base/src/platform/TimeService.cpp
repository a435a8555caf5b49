#include "platform/TimeService.h"

namespace tolm {
namespace {

double readClock(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

}  // namespace

double TimeService::wallSeconds() const {
    return readClock(CLOCK_MONOTONIC);
}

double TimeService::processCpuSeconds() const {
    return readClock(CLOCK_PROCESS_CPUTIME_ID);
}

double TimeService::threadCpuSeconds() const {
    return readClock(CLOCK_THREAD_CPUTIME_ID);
}

std::string TimeService::localTimeText(std::time_t moment) const {
    std::tm local{};
    ::localtime_r(&moment, &local);
    char buffer[64] = {};
    std::string text = ::asctime_r(&local, buffer) ? buffer : "";
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

}  // namespace tolm
