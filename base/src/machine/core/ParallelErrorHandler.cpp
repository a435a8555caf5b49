#include "machine/core/ParallelErrorHandler.h"

#include <unistd.h>

#include <cstdio>

#include "machine/core/Machine.h"
#include "neo/NonRecoverableError.h"

namespace tolm {

ParallelErrorHandler::ParallelErrorHandler() : _thread("error-handler") {}

ParallelErrorHandler::~ParallelErrorHandler() {
    stop();
}

bool ParallelErrorHandler::start() {
    _parentPid = static_cast<int>(::getppid());
    RollCall::installSignal();
    try {
        _thread.start([this] { run(); });
    } catch (const std::system_error&) {
        return false;
    }
    std::lock_guard lock(_mutex);
    _state = Running;
    return true;
}

void ParallelErrorHandler::stop() {
    interrupt();
    _thread.join();
    std::lock_guard lock(_mutex);
    if (_state == Running)
        _state = Stopped;
}

ParallelErrorHandler::State ParallelErrorHandler::getState() const {
    std::lock_guard lock(_mutex);
    return _state;
}

void ParallelErrorHandler::report(const Error& error) {
    if (!NonRecoverableError::isNonRecoverableErrorIn(error))
        return;
    if (!Machine::isMaster()) {
        Machine::handleParallelError(error);
        return;
    }
    std::lock_guard lock(_mutex);
    if (_pending)
        return;  // the first error ends the job; one message is enough
    _pending = error;
    _pendingSince = std::chrono::steady_clock::now();
}

void ParallelErrorHandler::raisePending() {
    std::optional<Error> pending;
    {
        std::lock_guard lock(_mutex);
        pending.swap(_pending);
    }
    if (pending)
        throw NonRecoverableError(pending->getMessage(), pending->properties());
}

bool ParallelErrorHandler::takeOverdueError(std::optional<Error>& overdue) {
    std::lock_guard lock(_mutex);
    if (!_pending || std::chrono::steady_clock::now() - _pendingSince < handOverTime)
        return false;
    overdue.swap(_pending);
    _state = Ending;
    return true;
}

void ParallelErrorHandler::run() {
    while (sleepFor(watchPeriod)) {
        std::optional<Error> overdue;
        if (takeOverdueError(overdue))
            Machine::endJobWith(*overdue);
        if (auto hung = _rollCall.watch(std::chrono::steady_clock::now()))
            Machine::endJobWith(*hung);
        if (static_cast<int>(::getppid()) != _parentPid) {
            std::fprintf(stderr,
                         "Error: the process that started this one has ended; "
                         "ending process %d\n",
                         static_cast<int>(::getpid()));
            std::fflush(stderr);
            ::_exit(int(ExitStatus(ExitStatus::NonRecoverableErrorCode)));
        }
    }
}

}  // namespace tolm
