#include "machine/RemoteShellFactory.h"

namespace tolm {

std::string RemoteShellFactory::_defaultRemoteShell;

void RemoteShellFactory::setDefaultRemoteProcessLauncher(const std::string& remoteShell) {
    _defaultRemoteShell = remoteShell;
}

const std::string& RemoteShellFactory::getDefaultRemoteProcessLauncher() {
    return _defaultRemoteShell;
}

}  // namespace tolm
