// Every driver function runs its body through guarded(): a handle that cannot be translated
// (HandleError) or a failed allocation becomes a return code, so no exception ever crosses
// the C interface. On the success path this costs nothing.
#pragma once

#include <new>

#include "mpiwrapper/driver/HandleError.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpidriver {

template <class Body>
int guarded(Body&& body) noexcept {
    try {
        return body();
    } catch (const HandleError& error) {
        return error.code;
    } catch (const std::bad_alloc&) {
        return QMX_MPI_ERR_NO_MEM;
    } catch (...) {
        return QMX_MPI_ERR_INTERN;
    }
}

// For pointer arguments MPI would dereference without a check.
inline void require(bool condition, int errorClass = QMX_MPI_ERR_ARG) {
    if (!condition) {
        throw HandleError{errorClass};
    }
}

}  // namespace tolm::mpidriver
