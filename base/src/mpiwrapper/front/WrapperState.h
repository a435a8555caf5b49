// The front library's state: which driver tables are loaded, whether MPI runs, and the live
// tables through which every exported QMX_MPI_ function calls. The live tables always hold a
// callable function for every entry (the driver's, or a refusal returning a wrapper code), so
// a forwarded call is one indirect call with no test on the way.
#pragma once

#include "mpiwrapper/QmxDriverTables.h"

namespace tolm::mpiwrapper {

extern MpiDriverTable liveMpi;
extern MpioDriverTable liveMpio;

namespace wrapperstate {

// Takes the MPI table of the driver library behind handle; returns a QMX code.
int loadMpiDriver(void* handle);
// Takes the MPI-IO table of the driver library behind handle; returns a QMX code.
int loadMpioDriver(void* handle);
// The loaded driver's MPI table, or nullptr.
const MpiDriverTable* mpiDriver();
// Switch the running entries on after QMX_MPI_Init, and off again after QMX_MPI_Finalize.
void mpiStarted();
void mpiFinalized();
bool mpiRunning();

}  // namespace wrapperstate
}  // namespace tolm::mpiwrapper
