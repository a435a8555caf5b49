#include "machine/remote/CustomRemoteProcessLauncher.h"

namespace tolm {

CustomRemoteProcessLauncher::CustomRemoteProcessLauncher(std::wstring remoteShell)
    : RemoteProcessLauncher(std::move(remoteShell)) {}

}  // namespace tolm
