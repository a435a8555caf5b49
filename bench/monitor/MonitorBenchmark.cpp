// What the memory monitor costs: one sample (read and parse /proc/self/status, update the
// figures) beside the raw system calls that read the file, and the processor time its
// sampling thread takes while the process sleeps, as a share of one core.
//
//   tolm-bench-monitor [SECONDS]   (how long each sampling period is watched; default 3)
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "machine/SystemMonitor.h"
#include "platform/Platform.h"
#include "platform/TimeService.h"

namespace {

using tolm::Platform::time;

constexpr int repetitions = 2000;

// Microseconds per call of `body`, over `repetitions` calls.
template <typename Body>
double microsecondsPerCall(Body body) {
    const double start = time().wallSeconds();
    for (int i = 0; i < repetitions; ++i)
        body();
    return (time().wallSeconds() - start) * 1e6 / repetitions;
}

double rawStatusRead() {
    return microsecondsPerCall([] {
        char buffer[4096];
        const int fd = ::open("/proc/self/status", O_RDONLY);
        while (::read(fd, buffer, sizeof buffer) > 0) {
        }
        ::close(fd);
    });
}

// Percent of one core the sampling thread takes at `milliseconds`, watched for `seconds`.
double samplingShare(unsigned milliseconds, double seconds, std::size_t& samples) {
    tolm::SystemMonitor monitor;
    monitor.setYieldTime(milliseconds);
    monitor.start();
    monitor.startRecording();
    const double cpuStart = time().processCpuSeconds();
    const double wallStart = time().wallSeconds();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const double cpu = time().processCpuSeconds() - cpuStart;
    const double wall = time().wallSeconds() - wallStart;
    monitor.stopRecording();
    samples = monitor.historySize();
    monitor.stop();
    return 100.0 * cpu / wall;
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    tolm::SystemMonitor monitor;
    const double raw = rawStatusRead();
    const double sample = microsecondsPerCall([&monitor] { monitor.sampleMemoryUse(); });
    std::printf("%-44s %12s %12s %8s\n", "operation", "monitor", "raw", "ratio");
    std::printf("%-44s %10.2f us %10.2f us %8.2f\n", "one sample (raw: open/read/close of status)",
                sample, raw, sample / raw);
    std::printf("\n%-14s %10s %14s %12s\n", "yield time", "samples", "core share", "target");
    for (const unsigned milliseconds : {20u, 5u, 1u}) {
        std::size_t samples = 0;
        const double share = samplingShare(milliseconds, seconds, samples);
        std::printf("%11u ms %10zu %12.3f %% %12s\n", milliseconds, samples, share,
                    milliseconds == 20 ? "<= 0.5 %" : "");
    }
    return 0;
}
