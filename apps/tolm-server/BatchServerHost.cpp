#include "BatchServerHost.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>

#include "machine/commands/CommandController.h"
#include "machine/core/OptionError.h"
#include "machine/monitor/Profile.h"
#include "neo/Command.h"
#include "neo/Controller.h"
#include "neo/Error.h"
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

}  // namespace

ExitStatus BatchServerHost::run(int argc, char** argv, const Machine::ArgumentMap& consumed) {
    const auto path = batchFile(argc, argv);
    if (!path)
        return runLoop(std::cin, consumed);
    std::ifstream batch(*path);
    if (!batch) {
        const std::string reason = Platform::error().lastErrorText();
        std::fprintf(stderr, "Error: Cannot open batch file %s: %s\n", path->c_str(),
                     reason.c_str());
        return ExitStatus::FileErrorCode;
    }
    return runLoop(batch, consumed);
}

}  // namespace tolm
