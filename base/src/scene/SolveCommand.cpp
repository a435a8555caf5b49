#include "scene/SolveCommand.h"

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/monitor/Timer.h"
#include "neo/CheckedField.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "scene/JacobiSolver.h"

namespace tolm {
namespace {

constexpr unsigned int maxSweeps = 1000000;

Properties timeStatistics(const Timer& timer) {
    Properties wall;
    wall.set("max", timer.getMaximumWallTime());
    wall.set("min", timer.getMinimumWallTime());
    wall.set("average", timer.getAverageWallTime());
    wall.set("standardDeviation", timer.getStandardDeviationWallTime());
    Properties cpu;
    cpu.set("max", timer.getMaximumCpuTime());
    cpu.set("min", timer.getMinimumCpuTime());
    cpu.set("average", timer.getAverageCpuTime());
    cpu.set("total", timer.getAccumulatedCpuTime());
    cpu.set("standardDeviation", timer.getStandardDeviationCpuTime());
    Properties statistics;
    statistics.setChild("wall", wall);
    statistics.setChild("cpu", cpu);
    return statistics;
}

void solve(const Properties& command, Properties& response) {
    const auto n = CheckedField::integer(command, "n", 1u, 8192u, 128u);
    const auto iterations = CheckedField::integer(command, "iterations", 0u, maxSweeps, 200u);
    const auto reportEvery = CheckedField::integer(command, "reportEvery", 1u, maxSweeps, 20u);
    const double tolerance = CheckedField::number(command, "tolerance", 0.0, 1e300, 0.0);
    if (n < Machine::nProcesses()) {
        throw Error("\"n\" must be at least the number of processes", 1);
    }
    Communicator* global = Machine::isParallel() ? Machine::globalCommunicator() : nullptr;

    Timer timer;
    timer.start();
    JacobiSolver solver(n, global);
    const auto history =
        solver.solve(iterations, tolerance, reportEvery);
    timer.stop();

    std::vector<unsigned long long> strip{solver.firstRow(), solver.rows()};
    std::vector<unsigned long long> strips(2 * Machine::nProcesses());
    if (global) {
        global->allGather(strip.data(), 2, strips.data());
    } else {
        strips = strip;
    }
    response.set("residuals", history);
    response.set("sweeps", solver.sweepsDone());
    response.set("strips", strips);
    response.setChild("time", timeStatistics(timer));
}

}  // namespace

void registerSolveCommand(Controller& controller) {
    controller.registerCommand("Solve", solve);
}

}  // namespace tolm
