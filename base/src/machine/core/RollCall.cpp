#include "machine/core/RollCall.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "machine/comm/MpiCore.h"
#include "machine/core/Machine.h"
#include "machine/core/OptionError.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"

namespace tolm {
namespace {

volatile std::sig_atomic_t requested = 0;

extern "C" void onRollCallSignal(int) {
    requested = 1;
}

// What the main thread publishes for the watchdog: written once per command, off the
// communication path, so a mutex is cheap enough.
struct Published {
    std::mutex mutex;
    double hangTimeout = 0.0;
    std::string command;
    std::string error;
    std::map<int, std::string> communicators;
};

Published& published() {
    static Published state;
    return state;
}

std::string communicatorName(int handle) {
    if (handle == QMX_MPI_COMM_WORLD)
        return "global communicator";
    Published& state = published();
    std::lock_guard lock(state.mutex);
    const auto found = state.communicators.find(handle);
    return found != state.communicators.end() ? found->second
                                              : "communicator " + std::to_string(handle);
}

void print(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stderr);
}

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", value);
    return text;
}

}  // namespace

void RollCall::setHangTimeout(double seconds) {
    std::lock_guard lock(published().mutex);
    published().hangTimeout = seconds > 0.0 ? seconds : 0.0;
}

void RollCall::setHangTimeout(const char* text) {
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(seconds >= 0.0 && seconds <= maxHangTimeout)) {
        throw OptionError(std::string("-hangtimeout takes a number of seconds from 0 to 604800, "
                                      "not ") +
                          text);
    }
    setHangTimeout(seconds);
}

double RollCall::getHangTimeout() {
    std::lock_guard lock(published().mutex);
    return published().hangTimeout;
}

void RollCall::setCommand(const std::string& name) {
    std::lock_guard lock(published().mutex);
    published().command = name;
    published().error.clear();
}

void RollCall::holdError(const std::string& message) {
    std::lock_guard lock(published().mutex);
    published().error = message;
}

void RollCall::nameCommunicator(int handle, const std::string& name) {
    std::lock_guard lock(published().mutex);
    published().communicators[handle] = name;
}

void RollCall::installSignal() {
    struct sigaction action {};
    action.sa_handler = onRollCallSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, nullptr);
}

RollCall::RollCall()
    : _host(Platform::process().hostName()), _seenSince(std::chrono::steady_clock::now()) {}

std::string RollCall::line(const OperationRecord::Snapshot& record, double waited) const {
    std::string command;
    std::string error;
    {
        std::lock_guard lock(published().mutex);
        command = published().command;
        error = published().error;
    }
    std::string text = "Roll-call: host " + _host + ", rank " +
                       std::to_string(Machine::getPartitionId()) + ", pid " +
                       std::to_string(Platform::process().pid()) + ", " +
                       Machine::getStateString(Machine::getSingleton().getState());
    text += command.empty() ? ", no command" : ", command \"" + command + "\"";
    if (record.inside() && record.operation) {
        text += std::string(", in ") + record.operation + " (";
        if (record.peer >= 0)
            text += "peer " + std::to_string(record.peer) + ", ";
        text += std::to_string(record.bytes) + " bytes, " + communicatorName(record.communicator) +
                ") for " + seconds(waited);
    } else {
        text += ", not communicating";
    }
    if (!error.empty())
        text += ", holding error \"" + error + "\"";
    return text;
}

std::optional<Error> RollCall::watch(std::chrono::steady_clock::time_point now) {
    const OperationRecord::Snapshot record = OperationRecord::read();
    if (record.sequence != _seenSequence) {
        _seenSequence = record.sequence;
        _seenSince = now;
    }
    const double waited =
        record.inside() ? std::chrono::duration<double>(now - _seenSince).count() : 0.0;
    if (requested) {
        requested = 0;
        print(line(record, waited));
    }
    if (_ending) {
        if (now >= _endAt)
            return endingError();
        return std::nullopt;
    }
    const double limit = getHangTimeout();
    if (limit <= 0.0 || !record.inside() || waited <= limit ||
        Machine::getSingleton().getState() == Machine::AwaitingCommand) {
        return std::nullopt;
    }
    print(line(record, waited));
    _waitReport = "Rank " + std::to_string(Machine::getPartitionId()) + " waited more than " +
                  seconds(limit) + " in " + record.operation + " and no rank reported an error";
    startEnding(now);
    return std::nullopt;
}

void RollCall::startEnding(std::chrono::steady_clock::time_point now) {
    bool holds = false;
    {
        std::lock_guard lock(published().mutex);
        holds = !published().error.empty();
    }
    _ending = true;
    _endAt = now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                       holds ? holderGrace : waiterGrace);
}

Error RollCall::endingError() const {
    std::string error;
    {
        std::lock_guard lock(published().mutex);
        error = published().error;
    }
    return Error(error.empty() ? _waitReport : error, 1);
}

}  // namespace tolm
