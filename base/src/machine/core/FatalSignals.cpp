#include "machine/core/FatalSignals.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <vector>

#include "machine/comm/MpiCore.h"
#include "machine/core/ExitStatus.h"
#include "neo/SignalHandler.h"

namespace tolm {
namespace {

struct FatalSignal {
    int number;
    const char* text;
};

constexpr FatalSignal fatalSignals[] = {
    {SIGSEGV, "SIGSEGV (segmentation fault)\n"},     {SIGBUS, "SIGBUS (bus error)\n"},
    {SIGILL, "SIGILL (illegal instruction)\n"},      {SIGABRT, "SIGABRT (abort)\n"},
    {SIGFPE, "SIGFPE (floating-point exception)\n"},
};

// "Error: rank N ended by signal TEXT\n" for each fatal signal, made before any can come, so
// that the handler writes its line in one write: a launcher that forwards standard error line
// by line then cannot interleave it with another rank's output.
char lines[std::size(fatalSignals)][96] = {};
volatile sig_atomic_t signalled = 0;

// How long the handler leaves the launcher to read the line before the abort: MPICH's launcher
// tears its proxies down on an abort, and output a proxy had not read yet is lost.
constexpr timespec forwardingPause{0, 200'000'000};

void writeText(const char* text) {
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text, std::strlen(text));
}

extern "C" void onAlarm(int) {
    ::signal(static_cast<int>(signalled), SIG_DFL);
    ::raise(static_cast<int>(signalled));
    ::_exit(int(ExitStatus(ExitStatus::NonRecoverableErrorCode)));
}

extern "C" void onFatalSignal(int number) {
    if (signalled) {  // a second fault while aborting: end this process
        ::signal(number, SIG_DFL);
        ::raise(number);
        return;
    }
    signalled = number;
    for (std::size_t i = 0; i < std::size(fatalSignals); ++i) {
        if (fatalSignals[i].number == number)
            writeText(lines[i]);
    }
    ::nanosleep(&forwardingPause, nullptr);
    ::signal(SIGALRM, onAlarm);
    ::alarm(FatalSignals::abortSeconds);
    QMX_MPI_Abort(QMX_MPI_COMM_WORLD, int(ExitStatus(ExitStatus::NonRecoverableErrorCode)));
    onAlarm(SIGALRM);
}

// A stack for the handler, so that a stack overflow's SIGSEGV is reported too.
void useAlternateStack() {
    static std::vector<char> stack(std::max<std::size_t>(SIGSTKSZ, 64 * 1024));
    stack_t alternate{};
    alternate.ss_sp = stack.data();
    alternate.ss_size = stack.size();
    ::sigaltstack(&alternate, nullptr);
}

}  // namespace

void FatalSignals::install(unsigned int rank) {
    for (std::size_t i = 0; i < std::size(fatalSignals); ++i)
        std::snprintf(lines[i], sizeof lines[i], "Error: rank %u ended by signal %s", rank,
                      fatalSignals[i].text);
    useAlternateStack();
    struct sigaction action {};
    action.sa_handler = onFatalSignal;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (const auto& fatal : fatalSignals) {
        if (fatal.number == SIGFPE && SignalHandler::_catchFpeSignals)
            continue;
        ::sigaction(fatal.number, &action, nullptr);
    }
}

}  // namespace tolm
