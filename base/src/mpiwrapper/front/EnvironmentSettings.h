// The wrapper's settings taken from environment variables (names in qmx_mpi.h). Invalid
// values are refused, never ignored: the reader returns false and remembers a text naming the
// variable and the value, which QMX_MPI_Error_string gives for QMX_MPI_ERR_BAD_ENVIRONMENT.
#pragma once

#include <cstdint>
#include <string>

namespace tolm::mpiwrapper::environment {

// TOLM_MPI_MAX_BUFFER_SIZE: unset gives QMX_MPI_DEFAULT_MAX_BUFFER_SIZE; otherwise decimal
// digits only, from 1 to that default.
bool readMaxBufferSize(std::uint64_t& bytes);

// TOLM_MPI_DISABLE_CPU_BIND_COLLISION_TEST: unset or "0" gives 0, "1" gives 1.
bool readCpuBindCollisionTestDisabled(int& flag);

// TOLM_MPI_YIELD_WAIT: unset or "0" gives 0, "1" gives 1.
bool readYieldWait(int& flag);

// The text of the last refused setting.
const std::string& lastProblem();

}  // namespace tolm::mpiwrapper::environment
