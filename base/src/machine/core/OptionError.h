#pragma once
#include <stdexcept>

namespace tolm {

// A bad command-line option: a missing value or a value the option does not take. The text
// is the message the user sees.
class OptionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace tolm
