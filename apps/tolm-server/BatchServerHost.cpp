#include "BatchServerHost.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "Preflight.h"
#include "ServerOptions.h"
#include "machine/commands/CommandController.h"
#include "neo/Controller.h"
#include "platform/Platform.h"
#include "platform/SystemErrors.h"

namespace tolm {
namespace {

ExitStatus runLoop(std::istream& input) {
    Controller& controller = Controller::getSingleton();
    controller.setCommandStreams(input, std::cout);
    CommandController::getSingleton().processCommands();
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
        return runLoop(std::cin);
    }
    std::ifstream batch(*path);
    if (!batch) {
        const std::string reason = Platform::error().lastErrorText();
        std::fprintf(stderr, "Error: Cannot open batch file %s: %s\n", path->c_str(),
                     reason.c_str());
        return ExitStatus::FileErrorCode;
    }
    const ExitStatus status = runLoop(batch);
    // A directory opens as a stream and fails at its first read; a file may fail mid-way.
    if (batch.bad()) {
        std::fprintf(stderr, "Error: Cannot read batch file %s\n", path->c_str());
        return ExitStatus::FileErrorCode;
    }
    return status;
}

}  // namespace tolm
