#pragma once
#include <optional>
#include <string>
#include <vector>

namespace tolm {

// Facts about the running process and its host.
class ProcessInfo {
  public:
    int pid() const;
    std::string hostName() const;
    // The value of an environment variable, or nothing when it is not set.
    std::optional<std::string> environment(const std::string& name) const;
    // The calling thread's stack, innermost frame first, one symbolised frame per entry;
    // empty where the platform cannot produce one.
    std::vector<std::string> backTrace(int skipFrames = 0) const;
};

}  // namespace tolm
