#pragma once
// The behaviour every WallTimer shares, checked on a new clock of any kind.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "machine/monitor/WallTimer.h"

namespace tolm::test {

// `clock` is new (stopped); `now` reads the seconds of the clock it measures.
inline void expectWallTimerContract(WallTimer& clock, const std::function<double()>& now) {
    double dt = -1.0;
    EXPECT_GT(clock.resolution(), 0.0);
    EXPECT_EQ(clock.getElapsedTime(dt), 1);
    EXPECT_EQ(dt, -1.0) << "a stopped clock leaves dt alone";
    EXPECT_EQ(clock.stop(), 1);

    EXPECT_EQ(clock.start(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const double restart = now();
    EXPECT_EQ(clock.start(), 1) << "a second start restarts";
    ASSERT_EQ(clock.getElapsedTime(dt), 0);
    EXPECT_GE(dt, 0.0);
    EXPECT_LE(dt, now() - restart) << "the interval runs from the restart";

    const auto copy = clock.copy();
    EXPECT_TRUE(copy->isRunning());
    double copied = -1.0;
    ASSERT_EQ(copy->getElapsedTime(copied), 0);
    EXPECT_GE(copied, dt);
    EXPECT_LE(copied, now() - restart) << "the copy keeps the start time";

    EXPECT_EQ(clock.stop(), 0);
    EXPECT_FALSE(clock.isRunning());
    EXPECT_TRUE(copy->isRunning()) << "copies are independent";
    EXPECT_EQ(clock.stop(), 1);
}

}  // namespace tolm::test
