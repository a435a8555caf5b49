#include "machine/core/SerialCritical.h"

#include <cstdio>

#include "neo/InternalError.h"
#include "platform/Thread.h"

namespace tolm {

Machine::SerialCritical::SerialCritical() {
    if (Thread::isMain())
        ++_serialCriticalLock;
}

Machine::SerialCritical::~SerialCritical() {
    if (!Thread::isMain())
        return;
    if (_serialCriticalLock == 0) {
        std::printf("Warning : SerialCritical lock out of synch..\n");
        std::fflush(stdout);
        return;
    }
    --_serialCriticalLock;
}

void Machine::assertNotSerialCritical(const char* where) {
    if (_serialCriticalLock != 0) {
        throw InternalError(where, "!_serialCriticalLock", __FILE__, __LINE__);
    }
}

}  // namespace tolm
