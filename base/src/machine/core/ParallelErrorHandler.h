#pragma once
#include <chrono>
#include <mutex>
#include <optional>

#include "machine/core/RollCall.h"
#include "neo/Error.h"
#include "platform/InterruptableRunnable.h"
#include "platform/Thread.h"

namespace tolm {

// Makes sure that an error which must end the job ends it, whichever rank and thread raised
// it, and that no process outlives its job.
//
// - A non-recoverable error that escapes a worker thread is reported here. On a slave (or a
//   serial process) it ends the job at once from that thread. On the master it is handed to
//   the main thread, which raises it at its next safe point (after each command), so that the
//   master's own clean-up runs; should the main thread not take it within `handOverTime`
//   (it may be waiting for input), the handler's thread ends the job itself.
// - The handler's thread also watches the process's parent, the MPI launcher's agent: when
//   it is gone, nothing would ever end this process's communication, so the process ends.
// - It is the roll-call's watchdog (RollCall): it prints this process's line when asked and
//   ends a job that waits longer than the hang limit.
class ParallelErrorHandler : private InterruptableRunnable {
  public:
    enum State { Stopped = 0, Running = 1, Ending = 2 };
    static constexpr std::chrono::duration<double> handOverTime{2.0};
    static constexpr std::chrono::duration<double> watchPeriod{0.2};

    ParallelErrorHandler();
    ~ParallelErrorHandler() override;
    ParallelErrorHandler(const ParallelErrorHandler&) = delete;
    ParallelErrorHandler& operator=(const ParallelErrorHandler&) = delete;

    // Starts the handler's thread; false when it cannot be started.
    bool start();
    void stop();
    State getState() const;

    // Any thread: an error that escaped a worker thread.
    void report(const Error& error);
    // Main thread: raises the error handed over by a worker thread, if any.
    void raisePending();

  private:
    void run() override;
    bool takeOverdueError(std::optional<Error>& overdue);

    mutable std::mutex _mutex;
    State _state = Stopped;
    std::optional<Error> _pending;
    std::chrono::steady_clock::time_point _pendingSince;
    int _parentPid = 0;
    RollCall _rollCall;
    Thread _thread;
};

}  // namespace tolm
