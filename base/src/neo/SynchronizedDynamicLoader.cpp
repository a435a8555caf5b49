#include "neo/SynchronizedDynamicLoader.h"

#include <algorithm>
#include <set>

#include "neo/Error.h"
#include "platform/DynamicLibraryLoader.h"
#include "platform/Platform.h"

namespace tolm {
namespace {

std::set<std::string>& initialisedModules() {
    static std::set<std::string> names;
    return names;
}

std::vector<std::string>& stateModules() {
    static std::vector<std::string> names;
    return names;
}

void initialise(const std::string& name) {
    if (initialisedModules().contains(name))
        return;
    auto& loader = Platform::dynamiclibrary();
    std::string error;
    void* handle = loader.load(name, DynamicLibraryLoader::Symbols::Local, error);
    void* entry =
        handle ? loader.symbol(handle, SynchronizedDynamicLoader::ENTRY_POINT, error) : nullptr;
    if (!entry)
        throw Error("Failed to load module " + name + ": " + error, 2);
    reinterpret_cast<void (*)()>(entry)();
    initialisedModules().insert(name);
}

}  // namespace

void SynchronizedDynamicLoader::load(const std::string& name) {
    initialise(name);
    auto& names = stateModules();
    if (std::find(names.begin(), names.end(), name) == names.end())
        names.push_back(name);
}

void SynchronizedDynamicLoader::nonStateLoad(const std::string& name) {
    initialise(name);
}

const std::vector<std::string>& SynchronizedDynamicLoader::loadedModules() {
    return stateModules();
}

}  // namespace tolm
