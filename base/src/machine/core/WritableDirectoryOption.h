#pragma once
#include <string>

namespace tolm {

// An option that names a directory the job writes into ("-tmpdir"): checked when the option is
// read, so that a bad value ends the start-up with the option's error instead of failing the
// first command that writes there.
class WritableDirectoryOption {
  public:
    // Throws OptionError "<option> <path> is not a writable directory: <reason>" unless `path`
    // exists, is a directory and may be written.
    static void require(const std::string& option, const std::string& path);
};

}  // namespace tolm
