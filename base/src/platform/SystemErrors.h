#pragma once
#include <string>

namespace tolm {

// Texts for operating-system error numbers.
class SystemErrors {
  public:
    // The system's description of errno value `code`.
    std::string text(int code) const;
    // The description of the calling thread's current errno.
    std::string lastErrorText() const;
};

}  // namespace tolm
