#pragma once
#include <cstddef>
#include <cstdint>

#include "neo/Subject.h"

namespace tolm {

class Communicator;

// One block of memory that every process of a shared-memory communicator sees at its own
// address: the whole block belongs to the communicator's first process, and the others map
// it. Derived classes give the block a type (see ShmemWindow).
//
// Construction and destruction are collective over the communicator, on the main thread.
// Writes and reads of the block are the caller's business; `fence` separates them: a value
// written before a fence is seen by every process after it.
//
// Errors: without MPI shared memory (an MPI 2 driver) construction is an InternalError
// "shared memory not available"; MPI failures are NonRecoverableError ("MPI Error : " and the
// wrapper's text). A window still alive when MPI finalises is freed first; a failure to free
// ends the job, since a destructor cannot report it.
class ShmemWindowBase : private Observer {
  public:
    virtual ~ShmemWindowBase();
    ShmemWindowBase(const ShmemWindowBase&) = delete;
    ShmemWindowBase& operator=(const ShmemWindowBase&) = delete;

    std::uint64_t getSize() const { return _winSize; }

  protected:
    // Over the processes of this host (Machine::sharedMemCommunicator(HOST_SCOPE)).
    ShmemWindowBase(std::size_t bytes, unsigned int displacementUnit);
    // Over the processes of `comm`, which must be able to share memory.
    ShmemWindowBase(std::size_t bytes, unsigned int displacementUnit, Communicator& comm);

    // The shared block: the same memory on every process of the communicator.
    void* getBaseAddress() const { return _baseAddress; }
    // Every process of the communicator calls it.
    void fence();

  private:
    void commonConstructor(Communicator& comm);
    // MPI is about to finalise.
    void update() override;
    void free();

    int _window = 0;
    std::uint64_t _winSize;
    int _displacementUnit;
    void* _baseAddress = nullptr;
};

}  // namespace tolm
