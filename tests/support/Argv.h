#pragma once
#include <string>
#include <vector>

#include "machine/core/Machine.h"

namespace tolm::test {

// A mutable argv (null-terminated) built from strings, as main receives it.
class Argv {
  public:
    Argv(std::initializer_list<std::string> entries) : Argv(std::vector<std::string>(entries)) {}
    explicit Argv(std::vector<std::string> entries) : _entries(std::move(entries)) {
        for (auto& entry : _entries)
            _pointers.push_back(entry.data());
        _pointers.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(_entries.size()); }
    char** argv() { return _pointers.data(); }

  private:
    std::vector<std::string> _entries;
    std::vector<char*> _pointers;
};

// The machine's common options read from `arguments`; what they consumed.
inline Machine::ArgumentMap parseCommonOptions(std::vector<std::string> arguments) {
    Argv argv(std::move(arguments));
    Machine::ArgumentMap consumed;
    Machine::parseCommonArgvs(argv.argc(), argv.argv(), consumed);
    return consumed;
}

}  // namespace tolm::test
