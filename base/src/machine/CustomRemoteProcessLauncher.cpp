#include "machine/CustomRemoteProcessLauncher.h"

namespace tolm {

CustomRemoteProcessLauncher::CustomRemoteProcessLauncher(std::wstring remoteShell)
    : RemoteProcessLauncher(std::move(remoteShell)) {}

}  // namespace tolm
