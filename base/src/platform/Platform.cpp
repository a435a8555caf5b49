#include "platform/Platform.h"

#include "platform/Chip.h"
#include "platform/DynamicLibraryLoader.h"
#include "platform/FileSystem.h"
#include "platform/MemoryService.h"
#include "platform/ProcessInfo.h"
#include "platform/SystemErrors.h"
#include "platform/TimeService.h"

namespace tolm::Platform {

FileSystem& filesystem() {
    static FileSystem service;
    return service;
}

ProcessInfo& process() {
    static ProcessInfo service;
    return service;
}

DynamicLibraryLoader& dynamiclibrary() {
    static DynamicLibraryLoader service;
    return service;
}

TimeService& time() {
    static TimeService service;
    return service;
}

MemoryService& memory() {
    static MemoryService service;
    return service;
}

Chip& chip() {
    static Chip service;
    return service;
}

SystemErrors& error() {
    static SystemErrors service;
    return service;
}

}  // namespace tolm::Platform
