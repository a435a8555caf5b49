#include "BatchServerHost.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "Preflight.h"
#include "ServerOptions.h"
#include "machine/commands/CommandController.h"
#include "machine/monitor/Profile.h"
#include "neo/Command.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "platform/Platform.h"
#include "platform/SystemErrors.h"

namespace tolm {
namespace {

// "-time": the job's profile, as the Profile command answers it, printed as a table on
// standard error, where it does not mix with the JSON answers on standard output.
void printProfile() {
    const Properties profile = Controller::getSingleton().execute(Command::make("Profile"));
    if (Error::isErrorIn(profile)) {
        std::fprintf(stderr, "Error: %s\n", Error::getMessage(profile).c_str());
        return;
    }
    std::fputs(Profile::format(profile).c_str(), stderr);
    std::fflush(stderr);
}

// The profile is a command of its own, run while the slaves are still in their loop.
ExitStatus runLoop(std::istream& input, const Machine::ArgumentMap& consumed) {
    Controller& controller = Controller::getSingleton();
    controller.setCommandStreams(input, std::cout);
    controller.processCommands();
    if (consumed.contains("-time"))
        printProfile();
    CommandController::getSingleton().releaseSlaves();
    return controller.failedCommandCount() ? ExitStatus::ServerErrorCode : ExitStatus();
}

void warnAboutLeftovers(int argc, char** argv, const Machine::ArgumentMap& consumed) {
    const std::string warning =
        ServerOptions::leftoverWarning(ServerOptions::leftovers(argc, argv, consumed));
    if (warning.empty())
        return;
    std::fprintf(stderr, "%s\n", warning.c_str());
    std::fflush(stderr);
}

}  // namespace

ExitStatus BatchServerHost::run(int argc, char** argv, const Machine::ArgumentMap& consumed) {
    warnAboutLeftovers(argc, argv, consumed);
    if (ServerOptions::isCheck(argc, argv))
        return Preflight::run(argc, argv);
    const auto path = ServerOptions::batchFile(argc, argv);
    if (!path) {
        if (::isatty(STDIN_FILENO)) {
            std::fprintf(stderr,
                         "Reading commands from standard input, one JSON object per line; end "
                         "with Ctrl-D (tolm-server -help lists the commands)\n");
            std::fflush(stderr);
        }
        return runLoop(std::cin, consumed);
    }
    std::ifstream batch(*path);
    if (!batch) {
        const std::string reason = Platform::error().lastErrorText();
        std::fprintf(stderr, "Error: Cannot open batch file %s: %s\n", path->c_str(),
                     reason.c_str());
        return ExitStatus::FileErrorCode;
    }
    const ExitStatus status = runLoop(batch, consumed);
    // A directory opens as a stream and fails at its first read; a file may fail mid-way.
    if (batch.bad()) {
        std::fprintf(stderr, "Error: Cannot read batch file %s\n", path->c_str());
        return ExitStatus::FileErrorCode;
    }
    return status;
}

}  // namespace tolm
