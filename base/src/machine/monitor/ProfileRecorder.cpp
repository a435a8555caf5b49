#include "machine/monitor/ProfileRecorder.h"

#include "neo/Controller.h"

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace tolm {

std::uint64_t ProfileRecorder::ticks() {
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    return static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
#endif
}

double ProfileRecorder::communicationSeconds() const {
    const double seconds = std::chrono::duration<double>(Clock::now() - _madeAt).count();
    const std::uint64_t elapsed = ticks() - _madeAtTicks;
    return elapsed == 0
               ? 0.0
               : static_cast<double>(_communicationTicks) * seconds / static_cast<double>(elapsed);
}

ProfileRecorder::~ProfileRecorder() {
    stop();
}

void ProfileRecorder::start() {
    Communicator::setStatisticsRecorder(this);
    Controller::getSingleton().getHandlerTimedObservable().attach(*this);
    _started = true;
}

void ProfileRecorder::stop() {
    if (!_started)
        return;
    _started = false;
    if (Communicator::getStatisticsRecorder() == this)
        Communicator::setStatisticsRecorder(nullptr);
    Controller::getSingleton().getHandlerTimedObservable().detach(*this);
}

void ProfileRecorder::startForProcess() {
    if (_forProcess)
        return;
    _forProcess = new ProfileRecorder();  // never deleted: see forProcess
    _forProcess->start();
}

void ProfileRecorder::open(const char* operation, std::uint64_t bytes) {
    _openOperation = operation;
    _openBytes = bytes;
    _openedAt = ticks();
}

void ProfileRecorder::close(int) {
    _communicationTicks += ticks() - _openedAt;
    OperationCounts& counts = operation(_openOperation);
    ++counts.count;
    counts.bytes += _openBytes;
}

void ProfileRecorder::update(const std::string& command, double seconds) {
    if (!Controller::getSingleton().hasCommand(command))
        return;  // answered "Unknown command": no name of the profile's
    CommandTimes& times = _commands[command];
    ++times.count;
    times.seconds += seconds;
}

ProfileRecorder::OperationCounts& ProfileRecorder::operation(const char* name) {
    for (const auto& [literal, index] : _operationIndex) {
        if (literal == name)
            return _operations[index];
    }
    // A name seen before through another copy of the literal (another library) shares it.
    std::size_t index = 0;
    while (index < _operations.size() && _operations[index].name != name)
        ++index;
    if (index == _operations.size())
        _operations.push_back(OperationCounts{name, 0, 0});
    _operationIndex.emplace_back(name, index);
    return _operations[index];
}

Properties ProfileRecorder::toProperties() const {
    Properties record;
    Properties commands;
    for (const auto& [name, times] : _commands) {
        Properties entry;
        entry.set("count", times.count);
        entry.set("seconds", times.seconds);
        commands.setChild(name, entry);
    }
    record.setChild("commands", commands);
    Properties::Value operations = Properties::Value::array();
    for (const OperationCounts& counts : _operations) {
        operations.push_back(Properties::Value{
            {"name", counts.name}, {"count", counts.count}, {"bytes", counts.bytes}});
    }
    record.set("operations", operations);
    record.set("communicationSeconds", communicationSeconds());
    return record;
}

}  // namespace tolm
