#pragma once
#include <memory>

namespace tolm {

// An abstract wall clock measuring one interval at a time. start, stop and getElapsedTime
// return 0 on success and 1 on failure: starting a running clock restarts its interval (and
// reports 1), stopping a stopped one and reading a stopped one fail. A failure never throws;
// the owner decides whether it matters.
class WallTimer {
  public:
    virtual ~WallTimer() = default;
    // A new clock of the same kind and state.
    virtual std::unique_ptr<WallTimer> copy() const = 0;
    // Seconds per tick.
    virtual double resolution() const = 0;
    virtual int start() = 0;
    virtual int stop() = 0;
    // Seconds since the start while running; dt is left as it was otherwise.
    virtual int getElapsedTime(double& dt) const = 0;

    bool isRunning() const { return running; }

  protected:
    WallTimer() = default;
    WallTimer(const WallTimer&) = default;
    WallTimer& operator=(const WallTimer&) = default;

    bool running = false;
};

// The operating system's monotonic clock: the wall clock of a serial run, and of timers that
// must not depend on MPI.
class SystemWallTimer final : public WallTimer {
  public:
    std::unique_ptr<WallTimer> copy() const override;
    double resolution() const override;
    int start() override;
    int stop() override;
    int getElapsedTime(double& dt) const override;

  private:
    double _startTime = 0.0;
};

}  // namespace tolm
