#pragma once
#include <memory>

#include "machine/comm/ShmemScope.h"

namespace tolm {

class Communicator;
class MachineHost;

// The communicators of a parallel run below the global one: for every scope (NUMA node, socket,
// host) the processes that share memory within it, and the sparse communicator over the first
// process of every such group. A process whose binding spans several sockets (NUMA nodes) of
// its host makes the host's processes share them out evenly by host rank; otherwise processes
// of one socket (node) belong together.
class ScopeCommunicators {
  public:
    // Collective over `world`; `host` is this process's host map.
    ScopeCommunicators(Communicator& world, MachineHost& host);
    ~ScopeCommunicators();

    // InternalError "Shared-memory communicators have not been built" for a scope not built.
    Communicator& sharedMemory(ShmemScope scope) const;
    // Null on the processes that lead no group of `scope`.
    Communicator* sparse(ShmemScope scope) const { return _sparse[scope].get(); }
    // Lets every communicator go without freeing it: a failing job must not run collective
    // clean-up.
    void abandon();

  private:
    void buildHostScope(Communicator& world, MachineHost& host);
    void buildScope(ShmemScope scope, MachineHost& host);
    void buildSparse(Communicator& world);

    std::unique_ptr<Communicator> _shared[numberOfShmemScopes];
    std::unique_ptr<Communicator> _sparse[numberOfShmemScopes];
};

}  // namespace tolm
