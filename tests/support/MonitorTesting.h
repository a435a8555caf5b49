#pragma once
// Helpers of the memory monitor tests: resident blocks, fresh samples and the exported history.
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "machine/monitor/SystemMonitor.h"

namespace tolm::test {

constexpr std::int64_t MiB = 1 << 20;
constexpr SystemMonitor::MemoryMetric allMetrics[] = {
    SystemMonitor::Virtual,    SystemMonitor::Resident,    SystemMonitor::Lib,
    SystemMonitor::VirtualHwm, SystemMonitor::ResidentHwm, SystemMonitor::AdjustedVirtual};

// Memory of `bytes` with every page written, so that all of it is resident.
inline std::unique_ptr<char[]> touchedBlock(std::int64_t bytes) {
    std::unique_ptr<char[]> block(new char[std::size_t(bytes)]);
    for (std::int64_t at = 0; at < bytes; at += 4096)
        static_cast<volatile char*>(block.get())[at] = 1;
    return block;
}

// A sample taken after this call: resetPeak makes the next reader wait for one.
inline void awaitNewSample(SystemMonitor& monitor) {
    monitor.resetPeak();
    monitor.getProcessPeakMemory(SystemMonitor::Virtual);
}

inline std::vector<std::string> linesOf(const std::string& fileName) {
    std::ifstream in(fileName);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// The comma-separated numbers of one line of the history.
inline std::vector<double> fieldsOf(const std::string& line) {
    std::vector<double> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, ',');)
        fields.push_back(std::stod(field));
    return fields;
}

}  // namespace tolm::test
