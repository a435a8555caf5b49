#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "machine/monitor/SystemMonitor.h"

namespace tolm {

// The memory history of the job as one CSV file, written by the master.
//
// Alignment: every process samples on its own clock, so histories differ in length and in
// their sample times. They are put on one time grid: from the earliest first sample of the
// job to the latest last sample, one line per sampling period (the longest yield time of the
// job). A process contributes to a line its latest sample taken at or before the line's time
// (its first sample before that, its last one after its history ends), and the line holds the
// sum over all processes of each metric: the job's memory at that moment. A process without
// samples contributes zero. A line for which some process's contribution was taken more than
// the staleness limit (ten periods, at least a second) away from the line's time is reported
// once, as "Error detected at time " with the first such time: from there on the sums mix
// samples of different moments.
//
// Lines: the time in seconds of the recording clock with three decimals, then the six sums in
// bytes, under the header "time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual".
class MemoryHistoryExport {
  public:
    static constexpr const char* header =
        "time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual";

    struct Grid {
        double start = 0.0;
        double step = 0.0;
        std::size_t lines = 0;
        double timeOf(std::size_t line) const { return start + step * double(line); }
    };

    // The grid from `first` to `last` (the end included) in steps of `step` seconds.
    static Grid makeGrid(double first, double last, double step);
    // One history's values on the grid, line after line (six values per line);
    // `firstProblem` becomes the earliest line time whose value lies farther than `staleness`
    // from it in time, and stays as it is when there is none.
    static std::vector<std::int64_t> resample(const std::vector<double>& times,
                                              const std::vector<SystemMonitor::Sample>& values,
                                              const Grid& grid, double staleness,
                                              double& firstProblem);
    static double stalenessLimit(double step);

    // Collective: combines every process's history as above; the master writes `fileName`.
    static void exportJob(const std::vector<double>& times,
                          const std::vector<SystemMonitor::Sample>& values, double yieldSeconds,
                          const std::string& fileName);

  private:
    static void write(const std::string& fileName, const Grid& grid,
                      const std::vector<std::int64_t>& sums);
};

}  // namespace tolm
