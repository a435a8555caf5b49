// Texts of the wrapper's own error codes, and a short text per error class for the times when
// no running MPI can give its own (no driver, MPI not started or finalized).
#pragma once

#include <string>

namespace tolm::mpiwrapper::errortexts {

// Text for a code from QMX_MPI_ERR_NO_DRIVER to QMX_MPI_ERR_LASTCODE.
std::string forWrapperCode(int code);

// Text for an error class (0 to QMX_MPI_ERR_RMA_FLAVOR); nullptr for a number that is none.
const char* forClass(int errorClass);

}  // namespace tolm::mpiwrapper::errortexts
