#include "machine/commands/CommandAutoLock.h"

#include "machine/core/Machine.h"
#include "neo/Controller.h"

namespace tolm {

CommandAutoLock::CommandAutoLock() {
    Machine::getSingleton();
    if (!(Machine::isSerial() || Machine::isMaster())) return;
    _lock = &Controller::getSingleton().getLock();
    _lock->lock();
}

CommandAutoLock::~CommandAutoLock() {
    if (_lock) _lock->unlock();
}

}  // namespace tolm
