#pragma once

namespace tolm {

class Controller;

// The server commands of the scene module:
//   "Echo"         answers with every entry of the command it was given.
//   "MachineInfo"  reports this process's role, the job's process count and the settings
//                  the machine took from the command line.
void registerSceneCommands(Controller& controller);

}  // namespace tolm
