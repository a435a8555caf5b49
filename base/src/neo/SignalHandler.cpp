#include "neo/SignalHandler.h"

#include <unistd.h>

#include <csignal>

#include "platform/FpuHandling.h"

namespace tolm {

bool SignalHandler::_catchFpeSignals = false;

namespace {

volatile std::sig_atomic_t fpeExitCode = 1;
volatile std::sig_atomic_t pendingSignal = 0;

extern "C" void onFloatingPointSignal(int) {
    static const char message[] = "Error: Floating point exception (SIGFPE)\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, message, sizeof(message) - 1);
    ::_exit(fpeExitCode);
}

extern "C" void onTerminationSignal(int signal) {
    pendingSignal = signal;
}

void install(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

}  // namespace

void SignalHandler::setCatchFpeSignals(bool catchSignals) {
    _catchFpeSignals = catchSignals;
    install(SIGFPE, catchSignals ? onFloatingPointSignal : SIG_DFL);
    FpuHandling::enableTraps(catchSignals);
}

void SignalHandler::setFpeExitCode(int code) {
    fpeExitCode = code;
}

void SignalHandler::catchTerminationSignals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        install(signal, onTerminationSignal);
}

int SignalHandler::takePendingSignal() {
    const int signal = pendingSignal;
    pendingSignal = 0;
    return signal;
}

}  // namespace tolm
