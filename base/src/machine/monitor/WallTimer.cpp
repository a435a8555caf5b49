#include "machine/monitor/WallTimer.h"

#include <chrono>

namespace tolm {
namespace {

// steady_clock is the monotonic clock; its tick is the resolution reported.
using Clock = std::chrono::steady_clock;

double now() {
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

}  // namespace

std::unique_ptr<WallTimer> SystemWallTimer::copy() const {
    return std::make_unique<SystemWallTimer>(*this);
}

double SystemWallTimer::resolution() const {
    return double(Clock::period::num) / double(Clock::period::den);
}

int SystemWallTimer::start() {
    _startTime = now();
    if (running)
        return 1;
    running = true;
    return 0;
}

int SystemWallTimer::stop() {
    _startTime = 0.0;
    if (!running)
        return 1;
    running = false;
    return 0;
}

int SystemWallTimer::getElapsedTime(double& dt) const {
    if (!running)
        return 1;
    dt = now() - _startTime;
    return 0;
}

}  // namespace tolm
