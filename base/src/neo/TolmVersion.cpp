#include "neo/TolmVersion.h"

namespace tolm {
namespace {

#ifdef TOLM_DEVELOPMENT_BUILD
bool developmentVersion = true;
#else
bool developmentVersion = false;
#endif

}  // namespace

std::string TolmVersion::_machineConfig;

std::string TolmVersion::getVersionString() {
    return "TolmMachine " TOLM_VERSION;
}

bool TolmVersion::isDevelopmentVersion() {
    return developmentVersion;
}

void TolmVersion::setDevelopmentVersion(bool development) {
    developmentVersion = development;
}

}  // namespace tolm
