#pragma once
#include "machine/remote/RemoteProcessLauncher.h"

namespace tolm {

// Launches through PuTTY's plink, always over the SSH protocol and in batch mode, so that
// no prompt (host key, password) can block a job that nobody watches.
class PuttyRemoteProcessLauncher : public RemoteProcessLauncher {
public:
    explicit PuttyRemoteProcessLauncher(std::wstring remoteShell);
};

}  // namespace tolm
