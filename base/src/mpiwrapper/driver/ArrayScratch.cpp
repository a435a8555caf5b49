#include "mpiwrapper/driver/ArrayScratch.h"

namespace tolm::mpidriver {

ArrayScratch scratch;

}  // namespace tolm::mpidriver
