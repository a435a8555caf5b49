#pragma once
#include <string>

namespace tolm {

// Chooses the remote shell through which processes are launched on other hosts. "-rsh"
// names the job's default.
class RemoteShellFactory {
  public:
    static void setDefaultRemoteProcessLauncher(const std::string& remoteShell);
    static const std::string& getDefaultRemoteProcessLauncher();

  private:
    static std::string _defaultRemoteShell;
};

}  // namespace tolm
