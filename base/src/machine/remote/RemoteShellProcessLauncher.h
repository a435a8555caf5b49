#pragma once
#include "machine/remote/RemoteProcessLauncher.h"

namespace tolm {

// Launches through rsh or ssh, which both take their own options, "-l user" and the host
// in the order the base class builds: nothing to add.
class RemoteShellProcessLauncher : public RemoteProcessLauncher {
public:
    explicit RemoteShellProcessLauncher(std::wstring remoteShell);
};

}  // namespace tolm
