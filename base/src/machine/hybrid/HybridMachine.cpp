#include "machine/hybrid/HybridMachine.h"

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"

namespace tolm {

HybridMachine::HybridMachine(ShmemScope scope) : _serial(Machine::isSerial()) {
    if (_serial)
        return;
    _communicator = Machine::hasSparseCommunicator(scope);
    _nLocalCore = Machine::sharedMemCommunicator(scope).size();
}

}  // namespace tolm
