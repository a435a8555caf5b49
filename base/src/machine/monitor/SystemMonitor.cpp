#include "machine/monitor/SystemMonitor.h"

#include <algorithm>
#include <chrono>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/topology/MachineHost.h"
#include "machine/monitor/MemoryHistoryExport.h"
#include "neo/InternalError.h"
#include "platform/InterruptableRunnable.h"
#include "platform/Semaphore.h"
#include "platform/Thread.h"

namespace tolm {

// Present exactly while the monitor runs; replaced by resetPeak. A reader that finds it
// unposted waits on the semaphore and posts it again for the next waiter.
struct SystemMonitor::FirstSampleGate {
    Semaphore semaphore;
    bool posted = false;
    std::mutex mutex;

    bool isPosted() {
        std::lock_guard lock(mutex);
        return posted;
    }
    void post() {
        std::lock_guard lock(mutex);
        if (posted)
            return;
        posted = true;
        semaphore.post();
    }
};

// The body of the sampling thread. A platform runnable stays interrupted once interrupted,
// so each start runs a fresh one on the same thread object.
class SystemMonitor::SamplingLoop : public InterruptableRunnable {
  public:
    explicit SamplingLoop(SystemMonitor& monitor) : _monitor(monitor) {}
    // Sleeps until fixed deadlines rather than for a period after each turn, so that the
    // wake-up latency neither stretches the period nor adds an early wake-up.
    void run() override {
        while (sleepUntil(_monitor.runNestedTask())) {
        }
    }

  private:
    SystemMonitor& _monitor;
};

// The run is ending: the sampling thread stops before the machine is taken down under it.
class SystemMonitor::MachineObserver : public Observer {
  public:
    explicit MachineObserver(SystemMonitor& monitor) : _monitor(monitor) {}
    void update() override { _monitor.stop(); }

  private:
    SystemMonitor& _monitor;
};

std::string_view SystemMonitor::metricName(MemoryMetric metric) {
    static constexpr std::string_view names[numberMetrics] = {
        "virtual", "resident", "lib", "virtualhwm", "residenthwm", "adjusted_virtual"};
    return names[metric];
}

// The recording clock is the system's wall clock: the sampling thread reads it, and MPI's
// clock belongs to the main thread.
SystemMonitor::SystemMonitor()
    : _recordingClock(Timer::WALL_TIMER_SYSTEM, nullptr),
      _machineObserver(std::make_unique<MachineObserver>(*this)) {
    Machine::getSingleton().getOnExitObservable().attach(*_machineObserver);
}

SystemMonitor::~SystemMonitor() {
    try {
        Machine::getSingleton().getOnExitObservable().detach(*_machineObserver);
    } catch (...) {
        // Only allocation can fail here, and then the machine is gone with the process.
    }
    if (!_loop)
        return;
    _loop->interrupt();
    _thread->join();
}

void SystemMonitor::start() {
    // clang-format off
    TOLM_ASSERT(!running(), "SystemMonitor is already running.");
    // clang-format on
    _firstOnHost = !Machine::isParallel() || Machine::getHost().firstProcessOnHost();
    {
        std::lock_guard lock(_mutex);
        _gate = std::make_shared<FirstSampleGate>();
    }
    if (!_thread)
        _thread = std::make_unique<Thread>("memory-monitor");
    _loop = std::make_unique<SamplingLoop>(*this);
    _thread->start([loop = _loop.get()] { loop->run(); });
}

bool SystemMonitor::running() const {
    return currentGate() != nullptr;
}

void SystemMonitor::stop() {
    const std::shared_ptr<FirstSampleGate> gate = currentGate();
    if (!gate)
        return;
    const auto patience = std::chrono::milliseconds(10 * getYieldTime()) + std::chrono::seconds(1);
    if (!gate->isPosted() && gate->semaphore.waitFor(patience))
        gate->semaphore.post();
    _loop->interrupt();
    _thread->join();
    std::lock_guard lock(_mutex);
    _gate.reset();
}

void SystemMonitor::setYieldTime(unsigned int const& ms) {
    _yieldTime = ms;
}

void SystemMonitor::resetPeak() {
    std::lock_guard lock(_mutex);
    _peak.fill(0);
    // An unposted gate is kept: its waiters also want the next sample, which follows the reset.
    if (_gate && _gate->isPosted())
        _gate = std::make_shared<FirstSampleGate>();
}

void SystemMonitor::startRecording() {
    if (Machine::isParallel())
        Machine::globalCommunicator()->synchronise();
    std::lock_guard lock(_mutex);
    if (_recording)
        return;
    _recordingClock.start();
    _recording = true;
}

void SystemMonitor::stopRecording() {
    if (Machine::isParallel())
        Machine::globalCommunicator()->synchronise();
    std::lock_guard lock(_mutex);
    if (!_recording)
        return;
    _recordingClock.stop();
    _recording = false;
}

bool SystemMonitor::isRecording() const {
    std::lock_guard lock(_mutex);
    return _recording;
}

double SystemMonitor::getTime() {
    std::lock_guard lock(_mutex);
    return _recording ? _recordingClock.getWallTime() : 0.0;
}

std::size_t SystemMonitor::historySize() const {
    std::lock_guard lock(_mutex);
    return _historyTimes.size();
}

SystemMonitor::Clock::time_point SystemMonitor::runNestedTask() {
    const Clock::duration period = std::chrono::milliseconds(getYieldTime());
    if (_schedule.takeDue(Clock::now(), period))
        sampleMemoryUse();
    return _schedule.nextDue(period);
}

bool SystemMonitor::sampleMemoryUse() {
    MemoryUsage usage;
    if (!_memoryReader.read(usage))
        return false;
    Sample sample;
    sample[Virtual] = std::int64_t(usage.virtualBytes);
    sample[Resident] = std::int64_t(usage.residentBytes);
    sample[Lib] = std::int64_t(usage.libraryBytes);
    sample[VirtualHwm] = std::int64_t(usage.virtualPeakBytes);
    sample[ResidentHwm] = std::int64_t(usage.residentPeakBytes);
    sample[AdjustedVirtual] = sample[Virtual] - (_firstOnHost ? 0 : sample[Lib]);
    std::lock_guard lock(_mutex);
    // A high-water mark never falls below a figure reported before. The kernel's marks can:
    // they come from per-CPU approximations of the counters, and were seen to drop below a
    // resident size reported a sample earlier.
    sample[VirtualHwm] = std::max({sample[VirtualHwm], sample[Virtual], _current[VirtualHwm]});
    sample[ResidentHwm] = std::max({sample[ResidentHwm], sample[Resident], _current[ResidentHwm]});
    _current = sample;
    for (std::size_t i = 0; i < numberMetrics; ++i)
        _peak[i] = std::max(_peak[i], sample[i]);
    if (_recording) {
        _historyTimes.push_back(_recordingClock.getWallTime());
        _historyValues.push_back(sample);
    }
    // Under the monitor's lock, so that resetPeak sees the gate as this sample left it.
    if (_gate)
        _gate->post();
    return true;
}

std::shared_ptr<SystemMonitor::FirstSampleGate> SystemMonitor::currentGate() const {
    std::lock_guard lock(_mutex);
    return _gate;
}

void SystemMonitor::waitForFirstSample() const {
    const std::shared_ptr<FirstSampleGate> gate = currentGate();
    if (!gate || gate->isPosted())
        return;
    gate->semaphore.wait();
    gate->semaphore.post();
}

std::int64_t SystemMonitor::getProcessMem(MemoryMetric m, const Sample& values) const {
    waitForFirstSample();
    std::lock_guard lock(_mutex);
    return values[m];
}

std::int64_t SystemMonitor::getHostMem(MemoryMetric m, const Sample& values) const {
    std::int64_t value = getProcessMem(m, values);
    if (!Machine::isParallel())
        return value;
    Communicator& comm = *Machine::globalCommunicator();
    std::vector<unsigned> mpiRanks;
    Machine::getHost().getMpiRanks(mpiRanks);
    if (Machine::getHost().firstProcessOnHost()) {
        // clang-format off
        TOLM_ASSERT(mpiRanks[0] == comm.myRank(), "Mismatch on host ranks");
        // clang-format on
        for (std::size_t i = 1; i < mpiRanks.size(); ++i) {
            std::int64_t other = 0;
            comm.recv(other, mpiRanks[i]);
            value += other;
        }
        for (std::size_t i = 1; i < mpiRanks.size(); ++i)
            comm.send(value, mpiRanks[i]);
    } else {
        // clang-format off
        TOLM_ASSERT(mpiRanks[0] != comm.myRank(), "Mismatch on host ranks");
        // clang-format on
        comm.send(value, mpiRanks[0]);
        comm.recv(value, mpiRanks[0]);
    }
    return value;
}

std::int64_t SystemMonitor::reduceProcessMem(MemoryMetric m, const Sample& values, int op) const {
    std::int64_t value = getProcessMem(m, values);
    if (Machine::isParallel())
        Machine::globalCommunicator()->allReduce(value, op);
    return value;
}

std::int64_t SystemMonitor::reduceHostMem(MemoryMetric m, const Sample& values, int op) const {
    std::int64_t value = getHostMem(m, values);
    if (Machine::isParallel())
        Machine::globalCommunicator()->allReduce(value, op);
    return value;
}

std::int64_t SystemMonitor::getProcessMemory(MemoryMetric m) const {
    return getProcessMem(m, _current);
}

std::int64_t SystemMonitor::getProcessPeakMemory(MemoryMetric m) const {
    return getProcessMem(m, _peak);
}

std::int64_t SystemMonitor::getHostMemory(MemoryMetric m) const {
    return getHostMem(m, _current);
}

std::int64_t SystemMonitor::getHostPeakMemory(MemoryMetric m) const {
    return getHostMem(m, _peak);
}

std::int64_t SystemMonitor::getGlobalAccumulatedMemory(MemoryMetric m) const {
    return reduceProcessMem(m, _current, QMX_MPI_SUM);
}

std::int64_t SystemMonitor::getGlobalMaxProcessMemory(MemoryMetric m) const {
    return reduceProcessMem(m, _current, QMX_MPI_MAX);
}

std::int64_t SystemMonitor::getGlobalMinProcessMemory(MemoryMetric m) const {
    return reduceProcessMem(m, _current, QMX_MPI_MIN);
}

std::int64_t SystemMonitor::getGlobalAccumulatedPeakMemory(MemoryMetric m) const {
    return reduceProcessMem(m, _peak, QMX_MPI_SUM);
}

std::int64_t SystemMonitor::getGlobalMaxProcessPeakMemory(MemoryMetric m) const {
    return reduceProcessMem(m, _peak, QMX_MPI_MAX);
}

std::int64_t SystemMonitor::getGlobalMinProcessPeakMemory(MemoryMetric m) const {
    return reduceProcessMem(m, _peak, QMX_MPI_MIN);
}

std::int64_t SystemMonitor::getGlobalMaxHostMemory(MemoryMetric m) const {
    return reduceHostMem(m, _current, QMX_MPI_MAX);
}

std::int64_t SystemMonitor::getGlobalMinHostMemory(MemoryMetric m) const {
    return reduceHostMem(m, _current, QMX_MPI_MIN);
}

std::int64_t SystemMonitor::getGlobalMaxHostPeakMemory(MemoryMetric m) const {
    return reduceHostMem(m, _peak, QMX_MPI_MAX);
}

std::int64_t SystemMonitor::getGlobalMinHostPeakMemory(MemoryMetric m) const {
    return reduceHostMem(m, _peak, QMX_MPI_MIN);
}

void SystemMonitor::exportHistoryData(std::string const& fileName) const {
    std::vector<double> times;
    std::vector<Sample> values;
    {
        std::lock_guard lock(_mutex);
        times = _historyTimes;
        values = _historyValues;
    }
    MemoryHistoryExport::exportJob(times, values, getYieldTime() / 1000.0, fileName);
}

}  // namespace tolm
