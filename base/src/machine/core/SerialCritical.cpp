#include "machine/core/SerialCritical.h"

#include "machine/comm/CommunicationLocks.h"
#include "neo/InternalError.h"

namespace tolm {

Machine::SerialCritical::SerialCritical() {
    if (Thread::isMain())
        CommunicationLocks::enterSerialCritical();
}

Machine::SerialCritical::~SerialCritical() {
    CommunicationLocks::leaveSerialCritical();
}

void Machine::assertNotSerialCritical(const char* where) {
    if (CommunicationLocks::serialCritical() != 0) {
        throw InternalError(where, "!_serialCriticalLock", __FILE__, __LINE__);
    }
}

}  // namespace tolm
