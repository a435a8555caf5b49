#include "machine/remote/RemoteShellProcessLauncher.h"

namespace tolm {

RemoteShellProcessLauncher::RemoteShellProcessLauncher(std::wstring remoteShell)
    : RemoteProcessLauncher(std::move(remoteShell)) {}

}  // namespace tolm
