#pragma once
#include <string>

namespace tolm {

// The build's version and the configuration of the running machine.
class TolmVersion {
  public:
    // "Np=<processes>" in a parallel run, "Serial" otherwise; set during start-up.
    static std::string _machineConfig;

    static std::string getVersionString();
    // True for development (debug) builds, which run extra consistency checks.
    static bool isDevelopmentVersion();
    // Lets a tool or a test run the other kind of build's checks.
    static void setDevelopmentVersion(bool development);
};

}  // namespace tolm
