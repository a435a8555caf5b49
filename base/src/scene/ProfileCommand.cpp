#include "scene/ProfileCommand.h"

#include "machine/monitor/Profile.h"
#include "machine/monitor/ProfileRecorder.h"
#include "neo/Controller.h"
#include "neo/Error.h"

namespace tolm {
namespace {

void profile(const Properties&, Properties& response) {
    const ProfileRecorder* recorder = ProfileRecorder::forProcess();
    if (!recorder)
        throw Error("The profile is off: start the server with -time", 1);
    response = Profile::gather(*recorder);
}

}  // namespace

void registerProfileCommand(Controller& controller) {
    controller.registerCommand("Profile", profile);
}

}  // namespace tolm
