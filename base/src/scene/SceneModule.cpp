// Entry point of the TolmScene module, which the machine loads at start-up on every process.
#include "neo/Controller.h"
#include "scene/SceneCommands.h"

extern "C" void tolmModuleInitialize() {
    tolm::registerSceneCommands(tolm::Controller::getSingleton());
}
