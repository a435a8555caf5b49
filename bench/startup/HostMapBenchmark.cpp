// Start-up cost of the host map, measured in one job of the machine layer (run it under the
// launcher; on simulated hosts too, see startup-times.sh):
//  - hwloc discovery runs once per host during start-up: the discoveries of all ranks are
//    counted and set beside the number of hosts;
//  - one discovery beside building the same topology from its XML text (what every process
//    but a host's first does), on rank 0 while the others wait;
//  - building the whole host map (one discovery per host, the XML sent to the others, the
//    communicators) beside every rank discovering the topology itself, both timed as the
//    slowest rank, all ranks at once.
// Each is timed in alternating rounds; the table shows each side's best round, their ratio and
// the median of the ratios of neighbouring rounds (load elsewhere only ever adds time).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/topology/CpuTopology.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"

namespace {

using tolm::Machine;

constexpr int rounds = 21;

tolm::Communicator& world() {
    return *Machine::globalCommunicator();
}

double milliseconds(const std::function<void()>& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

// The slowest rank's time of `run`, all ranks starting together.
double slowestRank(const std::function<void()>& run) {
    world().synchronise();
    double time = milliseconds(run);
    world().allReduce(time, QMX_MPI_MAX);
    return time;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void printRow(const char* name, const std::vector<double>& raw, const std::vector<double>& layer) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < raw.size(); ++round)
        ratios.push_back(layer[round] / raw[round]);
    const double bestRaw = *std::min_element(raw.begin(), raw.end());
    const double bestLayer = *std::min_element(layer.begin(), layer.end());
    std::printf("%-44s %10.3f %10.3f %8.3f %10.3f\n", name, bestRaw, bestLayer, bestLayer / bestRaw,
                median(ratios));
}

void discoveryAgainstXml() {
    std::vector<double> discovery, xml;
    if (Machine::isMaster()) {
        const std::string text = tolm::CpuTopology().toString();
        for (int round = 0; round < rounds; ++round) {
            discovery.push_back(milliseconds([] { tolm::CpuTopology discovered; }));
            xml.push_back(milliseconds([&] { tolm::CpuTopology rebuilt(text); }));
        }
        printRow("topology: discovery | from XML (rank 0)", discovery, xml);
    }
    world().synchronise();
}

void everyRankAgainstHostMap() {
    std::vector<double> everyRank, hostMap;
    for (int round = 0; round < rounds; ++round) {
        everyRank.push_back(slowestRank([] { tolm::CpuTopology discovered; }));
        hostMap.push_back(slowestRank([] { tolm::MachineHost host; }));
    }
    if (Machine::isMaster())
        printRow("start-up: every rank discovers | host map", everyRank, hostMap);
}

}  // namespace

int main(int, char** argv) {
    std::vector<std::string> arguments{argv[0], "-mpi", TOLM_BENCH_DRIVER};
    std::vector<char*> pointers;
    for (auto& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    Machine::ArgumentMap consumed;
    Machine::startCommunicators(static_cast<int>(arguments.size()), pointers.data(), consumed);

    unsigned discoveries = tolm::MachineHost::getNumberTopologyDiscoveries();
    world().allReduce(discoveries, QMX_MPI_SUM);
    if (Machine::isMaster()) {
        std::printf("Host map start-up: driver %s, %u ranks on %u hosts, %u hwloc discoveries\n",
                    TOLM_BENCH_DRIVER, Machine::nProcesses(), Machine::getHost().getNumberHosts(),
                    discoveries);
        std::printf("%-44s %10s %10s %8s %10s\n", "raw | this layer", "raw ms", "layer ms", "ratio",
                    "median");
    }
    discoveryAgainstXml();
    everyRankAgainstHostMap();
    Machine::stopCommunicators();
    return 0;
}
