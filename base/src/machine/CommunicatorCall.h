#pragma once
// The steps every communicating operation of Communicator shares; included only by the
// sources that implement those operations.
#include "machine/Communicator.h"
#include "machine/MpiCore.h"

namespace tolm {

template <typename WrapperCall>
void Communicator::communicate(const char* operation, std::uint64_t bytes, int peer,
                               WrapperCall&& call) {
    checkSerialCriticalLock();
    const double start = _timerEnabled ? QMX_MPI_Wtime() : 0.0;
    if (_statistics)
        _statistics->open(operation, bytes);
    const int err = call();
    if (_statistics)
        _statistics->close(peer);
    if (_timerEnabled)
        _communicationTime += QMX_MPI_Wtime() - start;
    MpiCore::handleError(err);
}

}  // namespace tolm
