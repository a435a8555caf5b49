#pragma once
#include <string>

#include "machine/comm/ShmemScope.h"

namespace tolm {

class HybridMpiThreadOperation;

// Runs an operation for a while as one process per shared-memory group (NUMA node, socket or
// host) with as many threads as the group has processes, while the group's other processes
// sleep in a barrier and lend it their processors:
//
//     MyReduction reduction;                                  // a HybridMpiThreadOperation
//     HybridMpiThreadContext::execute(SOCKET_SCOPE, reduction);  // on every process
//
// The first process of each group (the one with the scope's sparse communicator) executes the
// operation; its threads are bound to the group's LPUs when the process is bound and thread
// binding is on, and with "-xthreadbindverbose" the participants' bindings are printed. In a
// serial run the operation runs with one thread and nothing is communicated.
//
// Errors: InternalError "Cannot start hybrid thread context inside FieldLoops!" inside a field
// loop. An error of the operation passes to the caller on its process; the others are then
// left in the barrier, as with any error in collective code.
class HybridMpiThreadContext {
  public:
    HybridMpiThreadContext() = delete;

    // Collective over all processes.
    static void execute(ShmemScope scope, HybridMpiThreadOperation& op);
    // True on every process while a context runs: collective checks must not run inside it.
    static bool isActive() { return _active; }

  private:
    static void runOperation(ShmemScope scope, HybridMpiThreadOperation& op, bool processBound,
                             const std::string& name);
    static void printBindingReport(ShmemScope scope, const std::string& name,
                                   const std::string& report);

    static inline bool _active = false;
};

}  // namespace tolm
