// The driver's implementation of every wrapper function, one per entry of the function lists,
// with the wrapper's name without "QMX_MPI_". Each is defined in the source of its area
// (Lifecycle, Communicators, PointToPoint, Requests, Collectives, Datatypes, Windows, Infos,
// Files) and collected into the driver tables by DriverTables.cpp.
#pragma once

#include "mpiwrapper/QmxFunctionLists.h"

namespace tolm::mpidriver {

#define TOLM_DRIVER_DECLARE(ret, name, params, args) ret name params;
QMX_MPI_CUSTOM_FUNCTIONS(TOLM_DRIVER_DECLARE)
QMX_MPI_ANYTIME_FUNCTIONS(TOLM_DRIVER_DECLARE)
QMX_MPI_RUNNING_FUNCTIONS(TOLM_DRIVER_DECLARE)
QMX_MPIO_FUNCTIONS(TOLM_DRIVER_DECLARE)
#undef TOLM_DRIVER_DECLARE

}  // namespace tolm::mpidriver
