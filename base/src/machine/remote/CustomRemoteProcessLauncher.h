#pragma once
#include "machine/remote/RemoteProcessLauncher.h"

namespace tolm {

// Launches through a remote shell command of the user's choice (a full path, a wrapper
// script), which is expected to follow the rsh conventions: options, "-l user", host, command.
class CustomRemoteProcessLauncher : public RemoteProcessLauncher {
public:
    explicit CustomRemoteProcessLauncher(std::wstring remoteShell);
};

}  // namespace tolm
