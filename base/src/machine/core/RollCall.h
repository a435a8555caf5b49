#pragma once
#include <chrono>
#include <optional>
#include <string>

#include "machine/comm/OperationRecord.h"
#include "neo/Error.h"

namespace tolm {

// The roll-call: one line per process saying where it is (host, rank, process id, node state,
// the command it runs, the communication operation it waits in and for how long, and the
// error it holds when its command failed).
//
// - On demand: SIGUSR1, which both MPIs' launchers forward to every process, makes each
//   process print its line; the job goes on.
// - Hang limit ("-hangtimeout SECONDS"): a process that has waited longer than the limit
//   inside one communication operation of a command prints its line and ends the job with the
//   non-recoverable exit code. Waiting for the next command is not counted. A process that
//   holds its command's error ends the job after `holderGrace`, with that error as the job's
//   message; the others after `waiterGrace`, in case no process holds one. The graces let
//   every waiting process print its line first.
//
// The watchdog is the parallel error handler's thread, which calls `watch` periodically.
class RollCall {
  public:
    static constexpr std::chrono::duration<double> holderGrace{2.0};
    static constexpr std::chrono::duration<double> waiterGrace{8.0};

    // The limit in seconds; 0 (the default) waits without limit. The text form takes the
    // option's value: OptionError unless it is a number of seconds from 0 to `maxHangTimeout`.
    static constexpr double maxHangTimeout = 7 * 24 * 3600.0;
    static void setHangTimeout(double seconds);
    static void setHangTimeout(const char* text);
    static double getHangTimeout();
    // Main thread: the command this process runs now, and the error its command ended with.
    static void setCommand(const std::string& name);
    static void holdError(const std::string& message);
    // Names a communicator in the lines; the global one is named already.
    static void nameCommunicator(int handle, const std::string& name);
    // SIGUSR1 asks for the lines.
    static void installSignal();

    RollCall();
    // Watchdog thread: prints the line when asked and enforces the limit; returns the error
    // to end the job with once it is due.
    std::optional<Error> watch(std::chrono::steady_clock::time_point now);
    // The line of this process, given its operation record and how long it has waited.
    std::string line(const OperationRecord::Snapshot& record, double waited) const;

  private:
    void startEnding(std::chrono::steady_clock::time_point now);
    // The job's message: the held error, without the watchdog's stack, or the wait.
    Error endingError() const;

    std::string _host;
    std::uint64_t _seenSequence = 0;
    std::chrono::steady_clock::time_point _seenSince;
    bool _ending = false;
    std::chrono::steady_clock::time_point _endAt;
    std::string _waitReport;
};

}  // namespace tolm
