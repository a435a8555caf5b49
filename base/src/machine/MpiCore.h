#pragma once
#include <string>

namespace tolm {

// The layer between the machine and the MPI wrapper library.
class MpiCore {
  public:
    // Names of the MPI distribution and version in use, as the job reports them.
    static std::string getDistribName() { return _distribName; }
    static void setDistribName(const std::string& name) { _distribName = name; }
    static std::string getMpiVersionName() { return _mpiVersionName; }
    static void setMpiVersionName(const std::string& name) { _mpiVersionName = name; }

  private:
    static std::string _distribName;
    static std::string _mpiVersionName;
};

}  // namespace tolm
