#include "machine/monitor/MemoryHistoryExport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/files/FileReplacement.h"
#include "neo/Error.h"

namespace tolm {
namespace {

constexpr double none = std::numeric_limits<double>::max();
constexpr double smallestStep = 0.001;

}  // namespace

MemoryHistoryExport::Grid MemoryHistoryExport::makeGrid(double first, double last, double step) {
    Grid grid;
    grid.start = first;
    grid.step = std::max(step, smallestStep);
    // The last line lies at or just after `last`, so that every process's last sample shows;
    // the tolerance keeps a span of whole steps from gaining a line to rounding.
    const double steps = std::ceil((last - first) / grid.step - 1e-6);
    grid.lines = std::size_t(std::max(steps, 0.0)) + 1;
    return grid;
}

double MemoryHistoryExport::stalenessLimit(double step) {
    return std::max(10.0 * step, 1.0);
}

std::vector<std::int64_t> MemoryHistoryExport::resample(
    const std::vector<double>& times, const std::vector<SystemMonitor::Sample>& values,
    const Grid& grid, double staleness, double& firstProblem) {
    constexpr std::size_t width = SystemMonitor::numberMetrics;
    std::vector<std::int64_t> lines(grid.lines * width, 0);
    if (times.empty()) {
        firstProblem = std::min(firstProblem, grid.start);
        return lines;
    }
    std::size_t taken = 0;  // the sample in use: the latest at or before the line's time
    for (std::size_t line = 0; line < grid.lines; ++line) {
        const double time = grid.timeOf(line);
        while (taken + 1 < times.size() && times[taken + 1] <= time)
            ++taken;
        if (std::abs(times[taken] - time) > staleness)
            firstProblem = std::min(firstProblem, time);
        std::copy(values[taken].begin(), values[taken].end(), lines.begin() + line * width);
    }
    return lines;
}

void MemoryHistoryExport::exportJob(const std::vector<double>& times,
                                    const std::vector<SystemMonitor::Sample>& values,
                                    double yieldSeconds, const std::string& fileName) {
    double lastAndStep[2] = {times.empty() ? -none : times.back(), yieldSeconds};
    double first = times.empty() ? none : times.front();
    Communicator* comm = Machine::isParallel() ? Machine::globalCommunicator() : nullptr;
    if (comm) {
        comm->allReduce(lastAndStep, 2, QMX_MPI_MAX);
        comm->allReduce(first, QMX_MPI_MIN);
    }
    const bool master = !Machine::isParallel() || Machine::isMaster();
    if (lastAndStep[0] < first) {
        if (master) {
            std::printf("Empty sampling history...\n");
            std::fflush(stdout);
        }
        return;
    }
    const Grid grid = makeGrid(first, lastAndStep[0], lastAndStep[1]);
    double problem = none;
    std::vector<std::int64_t> sums =
        resample(times, values, grid, stalenessLimit(grid.step), problem);
    if (comm) {
        comm->reduce(sums.data(), sums.size(), QMX_MPI_SUM, Communicator::masterRank());
        comm->reduce(&problem, 1, QMX_MPI_MIN, Communicator::masterRank());
    }
    if (!master)
        return;
    std::printf("Exporting memory history to file : %s\n", fileName.c_str());
    std::fflush(stdout);
    write(fileName, grid, sums);
    if (problem != none) {
        std::printf(
            "Error detected at time %.3f: a process has no sample within %.3f s of it; "
            "its nearest sample stands in from there on\n",
            problem, stalenessLimit(grid.step));
        std::fflush(stdout);
    }
}

void MemoryHistoryExport::write(const std::string& fileName, const Grid& grid,
                                const std::vector<std::int64_t>& sums) {
    FileReplacement replacement(fileName);  // a failed write keeps the old file
    std::ofstream out(replacement.temporaryPath(), std::ios::trunc);
    out << header << '\n';
    char time[32];
    for (std::size_t line = 0; line < grid.lines && out; ++line) {
        std::snprintf(time, sizeof time, "%.3f", grid.timeOf(line));
        out << time;
        for (std::size_t metric = 0; metric < SystemMonitor::numberMetrics; ++metric)
            out << ',' << sums[line * SystemMonitor::numberMetrics + metric];
        out << '\n';
    }
    out.close();
    if (!out)
        throw Error("Error detected writing memory monitor history file", 1);
    const std::string failure = replacement.commit();
    if (!failure.empty())
        throw Error(failure, 1);
}

}  // namespace tolm
