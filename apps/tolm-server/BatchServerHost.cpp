#include "BatchServerHost.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>

#include "machine/commands/CommandController.h"
#include "machine/core/OptionError.h"
#include "neo/Controller.h"
#include "platform/Platform.h"
#include "platform/SystemErrors.h"

namespace tolm {
namespace {

// The value of "-batch", if the server was given one.
std::optional<std::string> batchFile(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!argv[i] || std::string(argv[i]) != "-batch")
            continue;
        if (i + 1 >= argc || !argv[i + 1])
            throw OptionError("Missing -batch arg");
        return std::string(argv[i + 1]);
    }
    return std::nullopt;
}

ExitStatus runLoop(std::istream& input) {
    Controller& controller = Controller::getSingleton();
    controller.setCommandStreams(input, std::cout);
    CommandController::getSingleton().processCommands();
    return controller.failedCommandCount() ? ExitStatus::ServerErrorCode : ExitStatus();
}

}  // namespace

ExitStatus BatchServerHost::run(int argc, char** argv, const Machine::ArgumentMap&) {
    const auto path = batchFile(argc, argv);
    if (!path)
        return runLoop(std::cin);
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
