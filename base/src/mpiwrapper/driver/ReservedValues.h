// Translation of the wrapper's special values (ranks, tags, "undefined", in place, modes and
// assertions) to the MPI library's and back. The ones on the hot path are inline and cost a
// predictable branch; a value that has no meaning is refused with the class MPI would give.
#pragma once

#include <mpi.h>

#include "mpiwrapper/driver/HandleError.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpidriver::special {

inline int rankToNative(int rank) {
    if (rank >= 0) {
        return rank;
    }
    if (rank == QMX_MPI_ANY_SOURCE) {
        return MPI_ANY_SOURCE;
    }
    if (rank == QMX_MPI_PROC_NULL) {
        return MPI_PROC_NULL;
    }
    throw HandleError{QMX_MPI_ERR_RANK};
}

inline int rankToQmx(int rank) {
    if (rank >= 0) {
        return rank;
    }
    if (rank == MPI_ANY_SOURCE) {
        return QMX_MPI_ANY_SOURCE;
    }
    if (rank == MPI_PROC_NULL) {
        return QMX_MPI_PROC_NULL;
    }
    return rank == MPI_UNDEFINED ? QMX_MPI_UNDEFINED : rank;
}

inline int tagToNative(int tag) {
    return tag == QMX_MPI_ANY_TAG ? MPI_ANY_TAG : tag;
}
inline int tagToQmx(int tag) {
    return tag == MPI_ANY_TAG ? QMX_MPI_ANY_TAG : tag;
}

inline int undefinedToNative(int value) {
    return value == QMX_MPI_UNDEFINED ? MPI_UNDEFINED : value;
}
inline int undefinedToQmx(int value) {
    return value == MPI_UNDEFINED ? QMX_MPI_UNDEFINED : value;
}

inline const void* sendBuffer(const void* buffer) {
    return buffer == QMX_MPI_IN_PLACE ? MPI_IN_PLACE : buffer;
}
inline void* recvBuffer(void* buffer) {
    return buffer == QMX_MPI_IN_PLACE ? MPI_IN_PLACE : buffer;
}

int fileModeToNative(int amode);
int whenceToNative(int whence);
int windowAssertionToNative(int assertion);
int lockTypeToNative(int lockType);
int threadLevelToNative(int level);
int threadLevelToQmx(int level);
int splitTypeToNative(int splitType);
int keyvalToNative(int keyval);
int comparisonToQmx(int result);

}  // namespace tolm::mpidriver::special
