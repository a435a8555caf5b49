// tolm-server: the reference server. Started by mpirun/mpiexec, or alone with "-s".
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "BatchServerHost.h"
#include "Preflight.h"
#include "ServerOptions.h"
#include "machine/core/Machine.h"
#include "machine/core/OptionError.h"
#include "machine/monitor/ProfileRecorder.h"
#include "neo/Controller.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"

namespace {

// The condition of the error that a driver which cannot be loaded raises.
constexpr const char* driverLoadCondition = "QMX_MPI_Initialize(handle) == QMX_MPI_SUCCESS";

// Reports an error that escaped the machine. In a parallel run the whole job ends with it,
// so that no other rank is left waiting for this one.
int endWith(const char* message, tolm::ExitStatus::ErrorCode code) {
    std::fprintf(stderr, "Error: %s\n", message);
    std::fflush(stderr);
    if (tolm::Machine::isParallel())
        tolm::Machine::abort(code);
    tolm::Machine& machine = tolm::Machine::getSingleton();
    machine.updateExitStatus(code);
    return int(machine.getExitStatus());
}

}  // namespace

int main(int argc, char** argv) {
    using tolm::ExitStatus;
    if (const auto text = tolm::ServerOptions::informationRequest(argc, argv)) {
        std::fputs(text->c_str(), stdout);
        return 0;
    }
    tolm::Preflight::registerCommand(tolm::Controller::getSingleton());
    tolm::Machine::setServerHost(std::make_unique<tolm::BatchServerHost>());
    // "-time": every process records where its time goes from the start (the slaves never
    // run the server host, so this happens here, on every process).
    if (std::any_of(argv, argv + argc,
                    [](const char* a) { return a && std::strcmp(a, "-time") == 0; }))
        tolm::ProfileRecorder::startForProcess();
    try {
        return int(tolm::Machine::main(argc, argv));
    } catch (const tolm::OptionError& error) {
        return endWith(error.what(), ExitStatus::InvalidArgumentCode);
    } catch (const tolm::NonRecoverableError& error) {
        tolm::Machine::handleParallelError(error);  // ends the job
        return endWith(error.what(), ExitStatus::NonRecoverableErrorCode);
    } catch (const tolm::InternalError& error) {
        if (error.getCondition() == driverLoadCondition) {
            // The user's choice of driver, not a fault of the code: name the drivers that
            // exist instead of the failed condition. MPI has not started, so this returns.
            const int code = endWith(error.what(), ExitStatus::ServerErrorCode);
            std::fprintf(stderr, "%s\n", tolm::ServerOptions::builtDriversLine().c_str());
            return code;
        }
        std::fprintf(stderr, "  Failed condition: %s (%s:%d)\n", error.getCondition().c_str(),
                     error.getFile().c_str(), error.getLine());
        return endWith(error.what(), ExitStatus::ServerErrorCode);
    } catch (const std::exception& error) {
        return endWith(error.what(), ExitStatus::ServerErrorCode);
    }
}
