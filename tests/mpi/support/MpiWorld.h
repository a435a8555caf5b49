// The rank and size of this process in QMX_MPI_COMM_WORLD, and payloads that differ by rank.
#pragma once

#include <vector>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpitest {

inline int worldRank() {
    int rank = -1;
    QMX_MPI_Comm_rank(QMX_MPI_COMM_WORLD, &rank);
    return rank;
}

inline int worldSize() {
    int size = 0;
    QMX_MPI_Comm_size(QMX_MPI_COMM_WORLD, &size);
    return size;
}

// A value that names both the rank that made it and its position, so that a payload that
// arrives from the wrong rank or in the wrong order cannot pass.
inline int payload(int rank, int index) {
    return rank * 10000 + index;
}

// payload(rank, first), ..., payload(rank, first + count - 1).
inline std::vector<int> payloads(int rank, int count, int first = 0) {
    std::vector<int> values;
    for (int index = first; index < first + count; ++index)
        values.push_back(payload(rank, index));
    return values;
}

// payload(0, index), ..., payload(size - 1, index): the value at `index` of every rank in turn.
inline std::vector<int> payloadOfEveryRank(int index) {
    std::vector<int> values;
    for (int rank = 0; rank < worldSize(); ++rank)
        values.push_back(payload(rank, index));
    return values;
}

}  // namespace tolm::mpitest
