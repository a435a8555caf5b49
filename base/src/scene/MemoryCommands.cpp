#include "scene/MemoryCommands.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "machine/monitor/SystemMonitor.h"
#include "neo/Controller.h"
#include "neo/Error.h"

namespace tolm {
namespace {

constexpr std::size_t width = SystemMonitor::numberMetrics;
using Figures = std::vector<std::int64_t>;  // current values, then peaks: 2 x width

SystemMonitor& monitor() {
    if (!Machine::hasSystemMonitor()) {
        throw Error(
            "The memory monitor is not enabled: start the server with -memorymonitor "
            "SECONDS",
            1);
    }
    return Machine::getSystemMonitor();
}

Properties metrics(const std::int64_t* values) {
    Properties record;
    for (std::size_t m = 0; m < width; ++m)
        record.set(SystemMonitor::metricName(SystemMonitor::MemoryMetric(m)), values[m]);
    return record;
}

Properties currentAndPeak(const std::int64_t* figures) {
    Properties record;
    record.setChild("current", metrics(figures));
    record.setChild("peak", metrics(figures + width));
    return record;
}

// Every process's figures, rank after rank, on the master; empty elsewhere.
Figures gatherFigures(const SystemMonitor& monitor) {
    Figures mine(2 * width);
    for (std::size_t m = 0; m < width; ++m) {
        mine[m] = monitor.getProcessMemory(SystemMonitor::MemoryMetric(m));
        mine[width + m] = monitor.getProcessPeakMemory(SystemMonitor::MemoryMetric(m));
    }
    if (!Machine::isParallel())
        return mine;
    Figures all(mine.size() * Machine::nProcesses());
    Machine::globalCommunicator()->gather(mine.data(), mine.size(), all.data(),
                                          Communicator::masterRank());
    return all;
}

Properties::Value hostsOf(const Figures& all) {
    std::map<std::string, std::vector<unsigned>> ranksByHost;
    for (const auto& [host, process] : Machine::getHost().getHostPidMap())
        ranksByHost[host].push_back(process.second);
    Properties::Value hosts = Properties::Value::array();
    for (auto& [host, ranks] : ranksByHost) {
        std::sort(ranks.begin(), ranks.end());
        Figures sum(2 * width, 0);
        for (const unsigned rank : ranks) {
            for (std::size_t i = 0; i < sum.size(); ++i)
                sum[i] += all[rank * sum.size() + i];
        }
        Properties record = currentAndPeak(sum.data());
        record.set("host", host);
        record.set("ranks", ranks);
        hosts.push_back(record.value());
    }
    return hosts;
}

// "min", "max" and "sum" over the processes of the figures from `offset` on.
Properties globalOf(const Figures& all, std::size_t offset) {
    const std::size_t processes = all.size() / (2 * width);
    Figures low(width), high(width), sum(width, 0);
    for (std::size_t m = 0; m < width; ++m) {
        low[m] = high[m] = all[offset + m];
        for (std::size_t p = 0; p < processes; ++p) {
            const std::int64_t value = all[p * 2 * width + offset + m];
            low[m] = std::min(low[m], value);
            high[m] = std::max(high[m], value);
            sum[m] += value;
        }
    }
    Properties record;
    record.setChild("min", metrics(low.data()));
    record.setChild("max", metrics(high.data()));
    record.setChild("sum", metrics(sum.data()));
    return record;
}

void memoryUsage(const Properties&, Properties& response) {
    const Figures all = gatherFigures(monitor());
    if (Machine::isParallel() && !Machine::isMaster())
        return;
    const MachineHost& host = Machine::getHost();
    Properties::Value processes = Properties::Value::array();
    for (const auto& [name, process] : host.getHostPidMap()) {
        Properties record;
        record.set("rank", process.second);
        record.set("host", name);
        record.set("pid", process.first);
        const Properties figures = currentAndPeak(all.data() + process.second * 2 * width);
        record.value().update(figures.value());
        processes.push_back(record.value());
    }
    std::sort(processes.begin(), processes.end(),
              [](const auto& a, const auto& b) { return a["rank"] < b["rank"]; });
    Properties global;
    global.setChild("current", globalOf(all, 0));
    global.setChild("peak", globalOf(all, width));
    response.set("unit", "bytes");
    response.set("processes", processes);
    response.set("hosts", hostsOf(all));
    response.setChild("global", global);
}

void recordingState(const SystemMonitor& monitor, double time, Properties& response) {
    response.set("recording", monitor.isRecording());
    response.set("time", time);
}

void startRecording(const Properties&, Properties& response) {
    SystemMonitor& memory = monitor();
    memory.startRecording();
    recordingState(memory, memory.getTime(), response);
}

void stopRecording(const Properties&, Properties& response) {
    SystemMonitor& memory = monitor();
    const double time = memory.getTime();
    memory.stopRecording();
    recordingState(memory, time, response);
}

void exportHistory(const Properties& command, Properties& response) {
    const auto fileName = command.get<std::string>("filename");
    monitor().exportHistoryData(fileName);
    response.set("filename", fileName);
}

}  // namespace

void registerMemoryCommands(Controller& controller) {
    controller.registerCommand("MemoryUsage", memoryUsage);
    controller.registerCommand("StartMemoryRecording", startRecording);
    controller.registerCommand("StopMemoryRecording", stopRecording);
    controller.registerCommand("ExportMemoryHistory", exportHistory);
}

}  // namespace tolm
