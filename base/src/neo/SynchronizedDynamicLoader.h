#pragma once
#include <string>
#include <vector>

namespace tolm {

// Loads modules: shared libraries "lib<Name>.so" (found as the platform loader finds
// libraries) whose entry point `extern "C" void tolmModuleInitialize()` registers what the
// module offers. Every process of a job loads the same modules at the same point of start-up.
// A module is initialised once per process, however often it is asked for.
//
// Errors: a module that cannot be loaded, or has no entry point, is an Error
// "Failed to load module <Name>: <loader text>".
class SynchronizedDynamicLoader {
  public:
    static constexpr const char* ENTRY_POINT = "tolmModuleInitialize";

    // Loads a module that belongs to the run's state (listed by `loadedModules`).
    static void load(const std::string& name);
    // Loads a module that the run's state does not record (the server's own modules).
    static void nonStateLoad(const std::string& name);

    static const std::vector<std::string>& loadedModules();
};

}  // namespace tolm
