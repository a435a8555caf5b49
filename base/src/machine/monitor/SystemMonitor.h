#pragma once
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "machine/monitor/SamplingSchedule.h"
#include "machine/monitor/Timer.h"
#include "neo/Subject.h"
#include "platform/MemoryService.h"

namespace tolm {

class Thread;

// Samples the memory use of this process on a background thread, keeps the latest sample and
// the peaks of every metric, records a time history of samples on demand, and answers
// questions about memory per process, per host and over the whole job. Amounts are bytes, as
// the platform's memory service reports them.
//
// The first reader of a figure after each start (and after each resetPeak) waits for a
// sample taken since then. Host and global figures, startRecording, stopRecording and
// exportHistoryData are collectives: every process of the job calls them in the same order
// (host figures over the processes of this host). In a serial run they are the process's own.
//
// Errors: InternalError "SystemMonitor is already running." on a second start; "Mismatch on
// host ranks" when the host map disagrees with this process's rank; Error "Error detected
// writing memory monitor history file" when the export cannot be written.
class SystemMonitor {
  public:
    enum MemoryMetric {
        Virtual = 0,
        Resident = 1,
        Lib = 2,
        VirtualHwm = 3,
        ResidentHwm = 4,
        // Virtual, less the shared libraries on every process but the first of its host, so
        // that a host's sum counts its libraries once.
        AdjustedVirtual = 5
    };
    static constexpr std::size_t numberMetrics = 6;
    using Sample = std::array<std::int64_t, numberMetrics>;
    // The metric's column in the history export ("virtual", "resident", ...).
    static std::string_view metricName(MemoryMetric metric);
    static constexpr unsigned int defaultYieldTime = 20;  // milliseconds between samples

    SystemMonitor();
    ~SystemMonitor();
    SystemMonitor(const SystemMonitor&) = delete;
    SystemMonitor& operator=(const SystemMonitor&) = delete;

    void start();
    bool running() const;
    // Waits for the first sample (a bounded time, should the memory reading keep failing),
    // then ends the sampling thread. Nothing when not running.
    void stop();
    void setYieldTime(unsigned int const& ms);
    unsigned int getYieldTime() const { return _yieldTime; }
    // All peaks to 0; the next reader waits for a new sample.
    void resetPeak();

    void startRecording();
    void stopRecording();
    bool isRecording() const;
    // Seconds of the recording clock while recording, else 0.0.
    double getTime();

    std::int64_t getProcessMemory(MemoryMetric m) const;
    std::int64_t getProcessPeakMemory(MemoryMetric m) const;
    std::int64_t getHostMemory(MemoryMetric m) const;
    std::int64_t getHostPeakMemory(MemoryMetric m) const;
    std::int64_t getGlobalAccumulatedMemory(MemoryMetric m) const;
    std::int64_t getGlobalMaxProcessMemory(MemoryMetric m) const;
    std::int64_t getGlobalMinProcessMemory(MemoryMetric m) const;
    std::int64_t getGlobalAccumulatedPeakMemory(MemoryMetric m) const;
    std::int64_t getGlobalMaxProcessPeakMemory(MemoryMetric m) const;
    std::int64_t getGlobalMinProcessPeakMemory(MemoryMetric m) const;
    std::int64_t getGlobalMaxHostMemory(MemoryMetric m) const;
    std::int64_t getGlobalMinHostMemory(MemoryMetric m) const;
    std::int64_t getGlobalMaxHostPeakMemory(MemoryMetric m) const;
    std::int64_t getGlobalMinHostPeakMemory(MemoryMetric m) const;

    // Writes the job's recorded history as CSV (see MemoryHistoryExport). Collective.
    void exportHistoryData(std::string const& fileName) const;
    // Samples recorded by this process.
    std::size_t historySize() const;

    // One reading of the process's memory, as the sampling thread takes it; false when the
    // reading failed (nothing changes then).
    bool sampleMemoryUse();

  private:
    struct FirstSampleGate;
    class SamplingLoop;
    class MachineObserver;

    using Clock = SamplingSchedule::Clock;

    // One turn of the sampling thread: samples when the next sample is due; returns when the
    // one after is due.
    Clock::time_point runNestedTask();
    void waitForFirstSample() const;
    std::shared_ptr<FirstSampleGate> currentGate() const;
    std::int64_t getProcessMem(MemoryMetric m, const Sample& values) const;
    std::int64_t getHostMem(MemoryMetric m, const Sample& values) const;
    std::int64_t reduceProcessMem(MemoryMetric m, const Sample& values, int op) const;
    std::int64_t reduceHostMem(MemoryMetric m, const Sample& values, int op) const;

    bool _firstOnHost = true;  // fixed at start, read by the sampling thread
    Sample _current{};
    Sample _peak{};
    bool _recording = false;
    Timer _recordingClock;
    std::vector<double> _historyTimes;
    std::vector<Sample> _historyValues;
    std::atomic<unsigned int> _yieldTime{defaultYieldTime};
    ProcessMemoryReader _memoryReader;
    SamplingSchedule _schedule;  // sampling thread only
    std::unique_ptr<Thread> _thread;
    std::unique_ptr<SamplingLoop> _loop;
    std::shared_ptr<FirstSampleGate> _gate;
    mutable std::mutex _mutex;
    std::unique_ptr<MachineObserver> _machineObserver;
};

}  // namespace tolm
