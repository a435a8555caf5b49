#pragma once
#include <memory>

#include "machine/monitor/WallTimer.h"

namespace tolm {

class Communicator;

// Measures stretches of work in two clocks at once, the wall clock and the process's CPU
// time, each accumulated over any number of start/stop intervals. The statistics compare the
// timer's current values across the processes of its communicator: in a parallel run they are
// collectives over it, which every one of its processes must call at the same point; in a
// serial run they describe this process alone.
//
// Errors: InternalError "WallTimer error" when the wall clock cannot be read while it runs,
// "Invalid Communicator!" for a statistic of a parallel run without a communicator. Starting
// a running clock (a restart) and stopping a stopped one are not errors.
class Timer {
  public:
    enum WallTimerType : int {
        // MPI's wall clock in a parallel run, the system's in a serial one.
        WALL_TIMER_MPI = 0,
        WALL_TIMER_SYSTEM = 1
    };

    Timer();
    explicit Timer(Communicator* comm);
    // `comm` (or the global communicator when null) is kept in a parallel run only.
    Timer(WallTimerType type, Communicator* comm);
    Timer(const Timer& other);
    Timer& operator=(const Timer& other);
    ~Timer();

    void start();
    void startWallTimer();
    void startCpuTimer();
    void stop();
    void stopCpuTimer();
    void stopWallTimer();
    void reset();
    void resetCpuTimer();
    void resetWallTimer();
    // Replaces the accumulated times; a running interval still adds on top.
    void setTimes(double cpu, double wall);

    // Seconds accumulated, plus the running interval.
    double getCpuTime() const;
    double getWallTime() const;
    bool running() const { return _cpuRunning && wallTimerRunning(); }
    bool cpuTimerRunning() const { return _cpuRunning; }
    bool wallTimerRunning() const { return _wallTimer->isRunning(); }

    double getMaximumWallTime() const;
    double getMinimumWallTime() const;
    // The sum over the communicator divided by the job's process count, also when the
    // communicator holds fewer processes.
    double getAverageWallTime() const;
    // The population standard deviation, on the communicator's master rank; 0.0 elsewhere.
    double getStandardDeviationWallTime() const;
    double getMaximumCpuTime() const;
    double getMinimumCpuTime() const;
    double getAccumulatedCpuTime() const;
    double getAverageCpuTime() const;
    double getStandardDeviationCpuTime() const;

  private:
    static std::unique_ptr<WallTimer> createWallTimer(WallTimerType type);
    double getElapsedCpuTime() const;
    double getElapsedWallTime() const;

    Communicator& statisticsCommunicator() const;
    double reduce(double value, int op) const;
    double average(double value) const;
    double standardDeviation(double value) const;

    std::unique_ptr<WallTimer> _wallTimer;
    double _wallTime = 0.0;
    double _cpuMark = 0.0;  // process CPU seconds at the last CPU start
    double _cpuTime = 0.0;
    bool _cpuRunning = false;
    Communicator* _communicator = nullptr;
};

}  // namespace tolm
