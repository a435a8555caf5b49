#pragma once
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "machine/comm/Communicator.h"
#include "neo/Properties.h"
#include "neo/Subject.h"

namespace tolm {

// Where this process's time goes: for each command name, how often its handler ran and for
// how many wall seconds; for each kind of communicator operation, how many calls and bytes;
// and the wall seconds spent inside communication. While started, it is the communicators'
// statistics recorder and observes the controller's handler timings; a process that never
// starts one pays one flag test per communication and one per command.
//
// Main thread only, as communication is. Starting a second recorder replaces the first.
class ProfileRecorder : public Communicator::StatisticsRecorder,
                        public TypedObserver<const std::string&, double> {
  public:
    struct CommandTimes {
        unsigned long count = 0;
        double seconds = 0.0;
    };
    struct OperationCounts {
        std::string name;
        unsigned long count = 0;
        std::uint64_t bytes = 0;
    };

    ProfileRecorder() = default;
    ~ProfileRecorder() override;
    ProfileRecorder(const ProfileRecorder&) = delete;
    ProfileRecorder& operator=(const ProfileRecorder&) = delete;

    void start();
    void stop();

    // The recorder of the whole process ("-time"): started on first call, null before. It
    // lives until the process ends (the controller it observes may go first).
    static void startForProcess();
    static ProfileRecorder* forProcess() { return _forProcess; }

    void open(const char* operation, std::uint64_t bytes) override;
    void close(int peer) override;
    // A command's handler ran for `seconds`.
    void update(const std::string& command, double seconds) override;

    const std::map<std::string, CommandTimes>& commands() const { return _commands; }
    // In the order of first use.
    const std::vector<OperationCounts>& operations() const { return _operations; }
    double communicationSeconds() const;
    // "commands": {name: {"count", "seconds"}}, "operations": [{"name", "count", "bytes"}],
    // "communicationSeconds".
    Properties toProperties() const;

  private:
    using Clock = std::chrono::steady_clock;

    // The processor's time-stamp counter where there is one (a few nanoseconds to read,
    // where the clock takes tens), converted to seconds by the clock's pace since the
    // recorder was made; the clock's own ticks elsewhere.
    static std::uint64_t ticks();

    OperationCounts& operation(const char* name);

    std::map<std::string, CommandTimes> _commands;
    std::vector<OperationCounts> _operations;
    // The operation names are literals: one pointer comparison finds a known one.
    std::vector<std::pair<const char*, std::size_t>> _operationIndex;
    std::uint64_t _communicationTicks = 0;
    const char* _openOperation = nullptr;
    std::uint64_t _openBytes = 0;
    std::uint64_t _openedAt = 0;
    const Clock::time_point _madeAt = Clock::now();
    const std::uint64_t _madeAtTicks = ticks();
    bool _started = false;

    static inline ProfileRecorder* _forProcess = nullptr;
};

}  // namespace tolm
