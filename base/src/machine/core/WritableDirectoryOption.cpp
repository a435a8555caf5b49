#include "machine/core/WritableDirectoryOption.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "machine/core/OptionError.h"

namespace tolm {

void WritableDirectoryOption::require(const std::string& option, const std::string& path) {
    struct stat status{};
    int problem = 0;
    if (::stat(path.c_str(), &status) != 0)
        problem = errno;
    else if (!S_ISDIR(status.st_mode))
        problem = ENOTDIR;
    else if (::access(path.c_str(), W_OK | X_OK) != 0)
        problem = errno;
    if (problem != 0) {
        throw OptionError(option + " " + path +
                          " is not a writable directory: " + std::strerror(problem));
    }
}

}  // namespace tolm
