#include "platform/DynamicLibraryLoader.h"

#include <dlfcn.h>

#include "platform/FileSystem.h"
#include "platform/Platform.h"

namespace tolm {

std::string DynamicLibraryLoader::fileName(const std::string& name) {
    return "lib" + name + ".so";
}

std::vector<std::string> DynamicLibraryLoader::searchDirectories() const {
    const std::string executable = Platform::filesystem().executablePath();
    const auto cut = executable.rfind(FileSystem::separator);
    if (cut == std::string::npos)
        return {};
    const std::string directory = executable.substr(0, cut);
    return {directory, directory + "/../lib"};
}

void* DynamicLibraryLoader::load(const std::string& name, Symbols symbols,
                                 std::string& error) const {
    const int mode = RTLD_NOW | (symbols == Symbols::Global ? RTLD_GLOBAL : RTLD_LOCAL);
    const std::string file = fileName(name);
    for (const auto& directory : searchDirectories()) {
        const std::string candidate = directory + FileSystem::separator + file;
        if (!Platform::filesystem().exists(candidate))
            continue;
        if (void* handle = ::dlopen(candidate.c_str(), mode))
            return handle;
        error = ::dlerror();  // found but unusable: report why rather than searching on
        return nullptr;
    }
    if (void* handle = ::dlopen(file.c_str(), mode))
        return handle;
    error = ::dlerror();
    return nullptr;
}

void* DynamicLibraryLoader::symbol(void* handle, const std::string& symbolName,
                                   std::string& error) const {
    ::dlerror();
    void* address = ::dlsym(handle, symbolName.c_str());
    if (!address) {
        const char* text = ::dlerror();
        error = text ? text : "symbol " + symbolName + " is null";
    }
    return address;
}

}  // namespace tolm
