#include "machine/HybridMachine.h"

#include "machine/Communicator.h"
#include "machine/Machine.h"

namespace tolm {

HybridMachine::HybridMachine(ShmemScope scope) : _serial(Machine::isSerial()) {
    if (_serial)
        return;
    _communicator = Machine::hasSparseCommunicator(scope);
    _nLocalCore = Machine::sharedMemCommunicator(scope).size();
}

}  // namespace tolm
