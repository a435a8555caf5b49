#pragma once

namespace tolm {

class Controller;

// The server command of hybrid MPI/thread execution:
//   "HybridReduce"  every process writes its "n" values (default 1048576; value j of rank r is
//     r * n + j + 1) into a block its shared-memory group of "scope" ("numa", "socket" or
//     "host", the default) shares; then one process per group sums the group's block on as
//     many threads as the group has processes while the others sleep, and the groups' sums are
//     added over the sparse communicator. Answers with "sum" (of all values of the job),
//     "scope", "groups" (the processes that summed), "threads" (the master's threads) and
//     "seconds" (the master's time in the hybrid context).
void registerHybridCommands(Controller& controller);

}  // namespace tolm
