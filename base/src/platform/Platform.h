#pragma once
// Entry points to the operating-system services. Each returns a process-wide service object;
// the services hold no state that needs start-up, so they are usable from static initialisers.

namespace tolm {
class FileSystem;
class ProcessInfo;
class DynamicLibraryLoader;
class TimeService;
class MemoryService;
class Chip;
class SystemErrors;
}  // namespace tolm

namespace tolm::Platform {
FileSystem& filesystem();
ProcessInfo& process();
DynamicLibraryLoader& dynamiclibrary();
TimeService& time();
MemoryService& memory();
Chip& chip();
SystemErrors& error();
}  // namespace tolm::Platform
