#include "machine/MpiCore.h"

namespace tolm {

std::string MpiCore::_distribName;
std::string MpiCore::_mpiVersionName;

}  // namespace tolm
