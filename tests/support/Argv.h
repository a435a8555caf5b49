#pragma once
#include <string>
#include <vector>

namespace tolm::test {

// A mutable argv (null-terminated) built from strings, as main receives it.
class Argv {
  public:
    Argv(std::initializer_list<std::string> entries) : _entries(entries) {
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

}  // namespace tolm::test
