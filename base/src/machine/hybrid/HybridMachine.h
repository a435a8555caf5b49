#pragma once
#include <cstdint>

#include "machine/comm/ShmemScope.h"

namespace tolm {

class Communicator;

// The reduced machine a hybrid operation runs on: one process per shared-memory group of a
// scope, talking over the scope's sparse communicator, with as many threads as its group has
// processes.
class HybridMachine {
  public:
    // This process's view of the reduced machine of `scope`.
    explicit HybridMachine(ShmemScope scope);

    // The sparse communicator of the scope; null in a serial run and on processes that do not
    // take part.
    Communicator* getCommunicator() const { return _communicator; }
    // Processes of this process's group: the threads the operation may use (1 in serial).
    std::uint32_t nLocalCore() const { return _nLocalCore; }
    bool isParallel() const { return !_serial; }
    bool isSerial() const { return _serial; }

  private:
    Communicator* _communicator = nullptr;
    std::uint32_t _nLocalCore = 1;
    bool _serial = true;
};

}  // namespace tolm
