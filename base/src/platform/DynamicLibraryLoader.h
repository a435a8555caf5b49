#pragma once
#include <string>
#include <vector>

namespace tolm {

// Loads shared libraries by their short name: "Name" is the file "libName.so", searched next
// to the running executable, then in the install's library directory (../lib beside the
// executable's directory), then by the system loader's own search path.
class DynamicLibraryLoader {
  public:
    enum class Symbols {
        Local,   // the library's symbols stay private to it
        Global,  // later-loaded libraries may resolve symbols from it
    };

    static std::string fileName(const std::string& name);
    std::vector<std::string> searchDirectories() const;

    // Returns the library handle, or null with the loader's text in `error`. Libraries stay
    // loaded for the life of the process.
    void* load(const std::string& name, Symbols symbols, std::string& error) const;
    // The address of `symbolName` in a loaded library, or null with the loader's text.
    void* symbol(void* handle, const std::string& symbolName, std::string& error) const;
};

}  // namespace tolm
