// What the memory monitor costs, beside the raw system calls it needs, in the same run:
//  - one sample (read and parse /proc/self/status, update the figures) beside a bare pread of
//    the open status file, and beside an open/read/close of it;
//  - the processor time its sampling thread takes while the process sleeps, as a share of one
//    core and per sample (wake-up included), beside a bare thread that wakes at the same
//    deadlines and makes the same pread.
//
//   tolm-bench-monitor [SECONDS]   (how long each thread is watched per period; default 3)
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "machine/monitor/SystemMonitor.h"
#include "platform/Platform.h"
#include "platform/TimeService.h"

namespace {

using tolm::Platform::time;

constexpr int repetitions = 2000;
constexpr const char* statusPath = "/proc/self/status";

// Microseconds per call of `body`, over `repetitions` calls.
template <typename Body>
double microsecondsPerCall(Body body) {
    const double start = time().wallSeconds();
    for (int i = 0; i < repetitions; ++i)
        body();
    return (time().wallSeconds() - start) * 1e6 / repetitions;
}

void preadStatus(int file) {
    char buffer[4096];
    if (::pread(file, buffer, sizeof buffer, 0) <= 0)
        std::abort();
}

void openReadCloseStatus() {
    char buffer[4096];
    const int file = ::open(statusPath, O_RDONLY);
    while (::read(file, buffer, sizeof buffer) > 0) {
    }
    ::close(file);
}

struct ThreadCost {
    double coreShare = 0.0;          // percent of one core
    double microsecondsPerWake = 0;  // processor time per sample, wake-up included
    std::size_t wakes = 0;
};

// The processor time the process takes while its main thread sleeps for `seconds` between
// `begin` and `end`, which start and stop a thread that reports its wake-ups.
template <typename Begin, typename End>
ThreadCost watch(double seconds, Begin begin, End end) {
    begin();
    const double cpuStart = time().processCpuSeconds();
    const double wallStart = time().wallSeconds();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const double cpu = time().processCpuSeconds() - cpuStart;
    const double wall = time().wallSeconds() - wallStart;
    ThreadCost cost;
    cost.wakes = end();
    cost.coreShare = 100.0 * cpu / wall;
    cost.microsecondsPerWake = cost.wakes ? cpu * 1e6 / double(cost.wakes) : 0.0;
    return cost;
}

ThreadCost monitorCost(unsigned milliseconds, double seconds) {
    tolm::SystemMonitor monitor;
    monitor.setYieldTime(milliseconds);
    return watch(
        seconds,
        [&] {
            monitor.start();
            monitor.startRecording();
        },
        [&] {
            monitor.stopRecording();
            monitor.stop();
            return monitor.historySize();
        });
}

// A bare thread: sleeps until deadlines `milliseconds` apart and preads the status file.
ThreadCost rawCost(unsigned milliseconds, double seconds, int statusFile) {
    std::atomic<bool> stop{false};
    std::size_t wakes = 0;
    std::thread thread;
    return watch(
        seconds,
        [&] {
            thread = std::thread([&] {
                timespec deadline;
                ::clock_gettime(CLOCK_MONOTONIC, &deadline);
                while (!stop) {
                    preadStatus(statusFile);
                    ++wakes;
                    deadline.tv_nsec += long(milliseconds) * 1000000;
                    deadline.tv_sec += deadline.tv_nsec / 1000000000;
                    deadline.tv_nsec %= 1000000000;
                    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
                }
            });
        },
        [&] {
            stop = true;
            thread.join();
            return wakes;
        });
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    const int statusFile = ::open(statusPath, O_RDONLY);
    tolm::SystemMonitor monitor;
    const double sample = microsecondsPerCall([&monitor] { monitor.sampleMemoryUse(); });
    const double raw = microsecondsPerCall([statusFile] { preadStatus(statusFile); });
    const double reopened = microsecondsPerCall(openReadCloseStatus);
    std::printf("%-36s %12s\n", "one reading of /proc/self/status", "time");
    std::printf("%-36s %9.2f us\n", "monitor: one sample", sample);
    std::printf("%-36s %9.2f us\n", "raw: pread of the open file", raw);
    std::printf("%-36s %9.2f us\n", "raw: open, read, close", reopened);

    std::printf("\n%-10s %-8s %8s %12s %14s %10s\n", "period", "thread", "samples", "core share",
                "cpu/sample", "target");
    for (const unsigned milliseconds : {20u, 5u, 1u}) {
        const ThreadCost bare = rawCost(milliseconds, seconds, statusFile);
        const ThreadCost cost = monitorCost(milliseconds, seconds);
        std::printf("%7u ms %-8s %8zu %10.3f %% %11.1f us %10s\n", milliseconds, "raw", bare.wakes,
                    bare.coreShare, bare.microsecondsPerWake, "");
        std::printf("%7u ms %-8s %8zu %10.3f %% %11.1f us %10s\n", milliseconds, "monitor",
                    cost.wakes, cost.coreShare, cost.microsecondsPerWake,
                    milliseconds == 20 ? "<= 0.5 %" : "");
    }
    ::close(statusFile);
    return 0;
}
