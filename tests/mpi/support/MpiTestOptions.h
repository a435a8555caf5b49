// The "-mpi <driver>" option of the MPI test executables, with the values the machine's own
// "-mpi" option takes (openmpi4, mpich2, platform; platform when absent).
#pragma once

#include <string>

namespace tolm::mpitest {

// Removes "-mpi <driver>" from argv and remembers the driver.
void takeDriverOption(int& argc, char** argv);

// The driver named on the command line.
const std::string& driverOption();

// Opens the driver named by driverOption() and hands it to the wrapper (QMX_MPI_Initialize,
// QMX_MPIO_Initialize); returns the handle. Exits the process with a message on failure.
void* loadDriverOrExit();

}  // namespace tolm::mpitest
