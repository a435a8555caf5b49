#pragma once
#include <string>
#include <vector>

namespace tolm {

// The running processes of this host that run a given program: how the host map finds other
// jobs of the same server sharing the host. "This host" is the host name's namespace: a
// process in another UTS namespace (a container, or a simulated host) is on another host.
class ServerProcesses {
  public:
    ServerProcesses() = delete;

    // Process ids, in increasing order, of the processes of this host whose executable file
    // is named `executableName` (no directory); this process among them when it runs that
    // program. Processes whose executable or namespace this process may not read are left out.
    static std::vector<unsigned> find(const std::string& executableName);
    // The file name (no directory) of this process's executable.
    static std::string ownExecutableName();
};

}  // namespace tolm
