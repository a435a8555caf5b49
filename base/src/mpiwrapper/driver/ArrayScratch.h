// Reusable native arrays for calls that take arrays of handles or statuses (Waitall, struct
// datatypes, rank translation), so that those calls do not allocate once the arrays have grown.
// One thread at a time calls the driver, and no call uses an array of another.
#pragma once

#include <mpi.h>

#include <cstddef>
#include <vector>

#include "mpiwrapper/driver/HandleError.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpidriver {

struct ArrayScratch {
    std::vector<MPI_Request> requests;
    std::vector<MPI_Status> statuses;
    std::vector<MPI_Datatype> types;
    std::vector<MPI_Aint> displacements;
    std::vector<int> ints;
};

extern ArrayScratch scratch;

// The array resized for count entries; a negative count is refused.
template <class T>
T* sized(std::vector<T>& array, int count) {
    if (count < 0) {
        throw HandleError{QMX_MPI_ERR_COUNT};
    }
    array.resize(static_cast<std::size_t>(count));
    return array.data();
}

}  // namespace tolm::mpidriver
