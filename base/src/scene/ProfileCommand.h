#pragma once

namespace tolm {

class Controller;

// "Profile": the job's profile so far (see Profile), on a server started with "-time";
// an error otherwise. Collective: every rank sends its record to the master.
void registerProfileCommand(Controller& controller);

}  // namespace tolm
