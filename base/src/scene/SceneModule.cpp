// Entry point of the TolmScene module, which the machine loads at start-up on every process.
#include "neo/Controller.h"
#include "scene/FaultCommands.h"
#include "scene/FileCommands.h"
#include "scene/HybridCommands.h"
#include "scene/MemoryCommands.h"
#include "scene/ProfileCommand.h"
#include "scene/SceneCommands.h"
#include "scene/SolveCommand.h"

extern "C" void tolmModuleInitialize() {
    tolm::Controller& controller = tolm::Controller::getSingleton();
    tolm::registerSceneCommands(controller);
    tolm::registerFaultCommands(controller);
    tolm::registerSolveCommand(controller);
    tolm::registerFileCommands(controller);
    tolm::registerHybridCommands(controller);
    tolm::registerMemoryCommands(controller);
    tolm::registerProfileCommand(controller);
}
