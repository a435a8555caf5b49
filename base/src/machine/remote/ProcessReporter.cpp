#include "machine/remote/ProcessReporter.h"

#include "neo/Error.h"
#include "neo/InternalError.h"
#include "platform/Pipe.h"

namespace tolm {

ProcessReporter::ProcessReporter(Pipe& pipe) : _pipe(pipe) {}

ProcessReporter::ProcessReporter(Pipe& pipe, const std::vector<LineObserver*>& observers)
    : _pipe(pipe) {
    for (LineObserver* observer : observers) _observers.attach(*observer);
}

ProcessReporter::ProcessReporter(const ProcessReporter& other) : _pipe(other._pipe) {
    std::lock_guard lock(mutex());
    _observers = other._observers;
    _stopped = other._stopped.load();
    _errorState = other._errorState;
    _rest = other._rest;
}

std::recursive_mutex& ProcessReporter::mutex() {
    static std::recursive_mutex shared;
    return shared;
}

void ProcessReporter::run() {
    try {
        std::string line;
        while (readLine(line)) notify(line);
    } catch (const Error& error) {
        reportFailure("ProcessReporter::Error : " + error.getMessage());
    } catch (const std::exception& exception) {
        reportFailure("ProcessReporter::Exception : " + std::string(exception.what()));
    } catch (...) {
        reportFailure("Exception");
    }
}

void ProcessReporter::stop() {
    _stopped = true;
}

bool ProcessReporter::readLine(std::string& line) {
    while (!takeLine(line)) {
        const int n = _pipe.read(_buffer, BUF_SIZE - 1, READ_TIMEOUT);
        if (_stopped) return false;
        if (n == Pipe::TimedOut || n == 0) continue;
        if (n < 0) {
            if (n != Pipe::Ended || _rest.empty()) return false;
            line = std::move(_rest);
            _rest.clear();
            return true;
        }
        TOLM_ASSERT(n < BUF_SIZE, "Overflow on buffer array");
        _rest.append(_buffer, static_cast<std::size_t>(n));
    }
    return true;
}

bool ProcessReporter::takeLine(std::string& line) {
    const auto end = _rest.find('\n');
    if (end == std::string::npos) return false;
    // A carriage return before the line feed is part of the line end: ssh ends its own
    // messages so, and so do programs on Windows hosts.
    const bool crlf = end > 0 && _rest[end - 1] == '\r';
    line.assign(_rest, 0, crlf ? end - 1 : end);
    _rest.erase(0, end + 1);
    return true;
}

void ProcessReporter::notify(const std::string& line) {
    std::lock_guard lock(mutex());
    _observers.notify(line);
}

void ProcessReporter::reportFailure(const std::string& text) {
    setErrorState(text);
    try {
        notify(text);
    } catch (...) {
        // The first failure is already kept; an observer failing again must not end the thread.
    }
}

void ProcessReporter::setErrorState(const std::string& text) {
    std::lock_guard lock(mutex());
    _errorState = text;
}

std::string ProcessReporter::getErrorState() const {
    std::lock_guard lock(mutex());
    return _errorState;
}

void ProcessReporter::attachObserver(LineObserver& observer) {
    std::lock_guard lock(mutex());
    _observers.attach(observer);
}

void ProcessReporter::detachObserver(LineObserver& observer) {
    std::lock_guard lock(mutex());
    _observers.detach(observer);
}

}  // namespace tolm
