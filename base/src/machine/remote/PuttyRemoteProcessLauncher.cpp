#include "machine/remote/PuttyRemoteProcessLauncher.h"

namespace tolm {

PuttyRemoteProcessLauncher::PuttyRemoteProcessLauncher(std::wstring remoteShell)
    : RemoteProcessLauncher(std::move(remoteShell)) {
    addOption(L"-ssh");
    addOption(L"-batch");
}

}  // namespace tolm
