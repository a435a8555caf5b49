// Machine's second half: how a job ends. The parallel error handler, the handlers of errors
// that escape worker threads and of std::terminate, and the end of the job with its exit
// status, through MPI in a parallel run. Machine.cpp holds the start-up and the accessors.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/core/ParallelErrorHandler.h"
#include "machine/core/ScopeCommunicators.h"
#include "neo/NonRecoverableError.h"
#include "platform/Log.h"
#include "platform/Thread.h"

namespace tolm {

namespace {

[[noreturn]] void onTerminate() {
    Machine::getSingleton().updateExitStatus(ExitStatus::ServerErrorCode);
    Machine::abort(ExitStatus());
}

}  // namespace

void Machine::abort(const ExitStatus& status) {
    uninstallTerminateHandler();
    Machine& machine = getSingleton();
    machine.updateExitStatus(status);
    endJob();
}

void Machine::endJob() {
    std::fflush(stdout);
    std::fflush(stderr);
    const ExitStatus status = getSingleton().getExitStatus();
    if (isParallel() && _globalComm) {
        // No collective clean-up while the job fails: communicators are let go, not freed.
        if (_scopeComms)
            _scopeComms.release()->abandon();
        _globalComm.release()->abort(status);
    }
    std::exit(int(status));
}

void Machine::startParallelErrorHandler() {
    if (!isParallel())
        return;
    if (!_settings.threaded) {
        std::printf("All internal errors will be treated as fatal\n");
        std::fflush(stdout);
        return;
    }
    Machine& machine = getSingleton();
    machine._parallelErrorHandler = std::make_unique<ParallelErrorHandler>();
    if (machine._parallelErrorHandler->start())
        return;
    machine._parallelErrorHandler.reset();
    if (isMaster()) {
        std::printf(
            "Parallel error handler failed to start. All internal errors will be treated as "
            "fatal.\n");
        std::fflush(stdout);
    }
}

void Machine::stopParallelErrorHandler() {
    Machine& machine = getSingleton();
    if (!machine._parallelErrorHandler)
        return;
    machine._parallelErrorHandler->stop();
    machine._parallelErrorHandler.reset();
}

// What escapes a worker thread: a non-recoverable error ends the job (through the parallel
// error handler where there is one); any other exception there is a fault of the code and is
// treated as non-recoverable; a recoverable Error is logged, and the thread ends.
void Machine::installWorkerErrorHandler() {
    Thread::setUncaughtExceptionHandler([](std::exception_ptr escaped) {
        std::optional<NonRecoverableError> fatal;
        try {
            std::rethrow_exception(escaped);
        } catch (const NonRecoverableError& error) {
            fatal.emplace(error.getMessage(), error.properties());
        } catch (const Error& error) {
            OS::Log::warning("Error on a worker thread: " + error.getMessage());
            return;
        } catch (const std::exception& error) {
            fatal.emplace(std::string("Uncaught exception on a worker thread: ") + error.what());
        } catch (...) {
            fatal.emplace("Uncaught exception on a worker thread");
        }
        ParallelErrorHandler* handler = getSingleton().getParallelErrorHandler();
        if (handler) {
            handler->report(*fatal);
        } else {
            endJobWith(*fatal);
        }
    });
}

void Machine::handleParallelError(const Error& error) {
    if (error.isCollective())
        return;
    if (isMaster() && !Thread::isMain())
        return;
    if (!NonRecoverableError::isNonRecoverableErrorIn(error))
        return;
    endJobWith(error);
}

void Machine::endJobWith(const Error& error) {
    std::fprintf(stderr, "Error: %s\n", error.getMessage().c_str());
    const Properties& properties = error.properties();
    if (properties.has(Error::STACK_TRACE_TAG)) {
        for (const auto& frame : properties.get<std::vector<std::string>>(Error::STACK_TRACE_TAG)) {
            std::fprintf(stderr, "  %s\n", frame.c_str());
        }
    }
    uninstallTerminateHandler();
    getSingleton().updateExitStatus(ExitStatus::NonRecoverableErrorCode);
    endJob();
}

void Machine::installTerminateHandler() {
    std::set_terminate(onTerminate);
}

void Machine::uninstallTerminateHandler() {
    std::set_terminate(nullptr);
}

}  // namespace tolm
