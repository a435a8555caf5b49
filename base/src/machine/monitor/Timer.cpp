#include "machine/monitor/Timer.h"

#include <cmath>
#include <cstdio>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/monitor/MpiWallTimer.h"
#include "neo/InternalError.h"
#include "platform/Platform.h"
#include "platform/TimeService.h"

namespace tolm {
namespace {

double processCpuSeconds() {
    return Platform::time().processCpuSeconds();
}

// Population standard deviation (divisor n); 0.0 for no values.
double populationStandardDeviation(const std::vector<double>& values) {
    if (values.empty())
        return 0.0;
    double sum = 0.0;
    double sumOfSquares = 0.0;
    for (const double value : values) {
        sum += value;
        sumOfSquares += value * value;
    }
    const double n = double(values.size());
    const double mean = sum / n;
    const double variance = sumOfSquares / n - mean * mean;
    return variance > 0.0 ? std::sqrt(variance) : 0.0;
}

}  // namespace

Timer::Timer() : Timer(WALL_TIMER_MPI, nullptr) {}

Timer::Timer(Communicator* comm) : Timer(WALL_TIMER_MPI, comm) {}

Timer::Timer(WallTimerType type, Communicator* comm) : _wallTimer(createWallTimer(type)) {
    if (Machine::isParallel())
        _communicator = comm ? comm : Machine::globalCommunicator();
}

Timer::Timer(const Timer& other)
    : _wallTimer(other._wallTimer->copy()),
      _wallTime(other._wallTime),
      _cpuMark(other._cpuMark),
      _cpuTime(other._cpuTime),
      _cpuRunning(other._cpuRunning),
      _communicator(other._communicator) {}

Timer& Timer::operator=(const Timer& other) {
    if (this == &other)
        return *this;
    _wallTimer = other._wallTimer->copy();
    _wallTime = other._wallTime;
    _cpuMark = other._cpuMark;
    _cpuTime = other._cpuTime;
    _cpuRunning = other._cpuRunning;
    _communicator = other._communicator;
    return *this;
}

Timer::~Timer() = default;

std::unique_ptr<WallTimer> Timer::createWallTimer(WallTimerType type) {
    switch (type) {
        case WALL_TIMER_MPI:
            if (Machine::isParallel())
                return std::make_unique<MpiCore::MpiWallTimer>();
            return std::make_unique<SystemWallTimer>();
        case WALL_TIMER_SYSTEM:
            return std::make_unique<SystemWallTimer>();
    }
    std::printf("Unsupported wall timer type.. reverting to system wall timer.\n");
    return std::make_unique<SystemWallTimer>();
}

void Timer::start() {
    startWallTimer();
    startCpuTimer();
}

void Timer::startWallTimer() {
    _wallTimer->start();  // a restart of a running clock is intended
}

void Timer::startCpuTimer() {
    _cpuMark = processCpuSeconds();
    _cpuRunning = true;
}

void Timer::stop() {
    stopCpuTimer();
    stopWallTimer();
}

void Timer::stopCpuTimer() {
    if (!_cpuRunning)
        return;
    _cpuTime += getElapsedCpuTime();
    _cpuRunning = false;
}

void Timer::stopWallTimer() {
    if (!_wallTimer->isRunning())
        return;
    _wallTime += getElapsedWallTime();
    _wallTimer->stop();
}

void Timer::reset() {
    resetCpuTimer();
    resetWallTimer();
}

void Timer::resetCpuTimer() {
    _cpuTime = 0.0;
    _cpuRunning = false;
}

void Timer::resetWallTimer() {
    if (_wallTimer->isRunning())
        _wallTimer->stop();
    _wallTime = 0.0;
}

void Timer::setTimes(double cpu, double wall) {
    _cpuTime = cpu;
    _wallTime = wall;
}

double Timer::getCpuTime() const {
    return _cpuTime + (_cpuRunning ? getElapsedCpuTime() : 0.0);
}

double Timer::getWallTime() const {
    return _wallTime + (_wallTimer->isRunning() ? getElapsedWallTime() : 0.0);
}

double Timer::getElapsedCpuTime() const {
    return processCpuSeconds() - _cpuMark;
}

double Timer::getElapsedWallTime() const {
    double dt = 0.0;
    TOLM_ASSERT(_wallTimer->getElapsedTime(dt) == 0, "WallTimer error");
    return dt;
}

double Timer::getMaximumWallTime() const {
    return reduce(getWallTime(), QMX_MPI_MAX);
}

double Timer::getMinimumWallTime() const {
    return reduce(getWallTime(), QMX_MPI_MIN);
}

double Timer::getAverageWallTime() const {
    return average(getWallTime());
}

double Timer::getStandardDeviationWallTime() const {
    return standardDeviation(getWallTime());
}

double Timer::getMaximumCpuTime() const {
    return reduce(getCpuTime(), QMX_MPI_MAX);
}

double Timer::getMinimumCpuTime() const {
    return reduce(getCpuTime(), QMX_MPI_MIN);
}

double Timer::getAccumulatedCpuTime() const {
    return reduce(getCpuTime(), QMX_MPI_SUM);
}

double Timer::getAverageCpuTime() const {
    return average(getCpuTime());
}

double Timer::getStandardDeviationCpuTime() const {
    return standardDeviation(getCpuTime());
}

Communicator& Timer::statisticsCommunicator() const {
    TOLM_ASSERT(_communicator, "Invalid Communicator!");
    return *_communicator;
}

double Timer::reduce(double value, int op) const {
    if (!Machine::isParallel())
        return value;
    statisticsCommunicator().allReduce(&value, 1, op);
    return value;
}

double Timer::average(double value) const {
    return reduce(value, QMX_MPI_SUM) / double(Machine::nProcesses());
}

double Timer::standardDeviation(double value) const {
    if (!Machine::isParallel())
        return 0.0;
    Communicator& comm = statisticsCommunicator();
    const unsigned int root = Communicator::masterRank();
    std::vector<double> values(comm.myRank() == root ? comm.size() : 0);
    comm.gather(&value, 1, values.data(), root);
    return populationStandardDeviation(values);
}

}  // namespace tolm
