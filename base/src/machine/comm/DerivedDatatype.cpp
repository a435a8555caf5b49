#include "machine/comm/DerivedDatatype.h"

namespace tolm {

int MpiCore::DerivedDatatype::defineMpiStructType(int count, const int* blockLengths,
                                                  const std::int64_t* displacements,
                                                  const int* types) {
    int newType = QMX_MPI_DATATYPE_NULL;
    handleError(QMX_MPI_Type_create_struct(count, blockLengths, displacements, types, &newType));
    return newType;
}

int MpiCore::DerivedDatatype::defineMpiContiguousType(int count, const int& oldType) {
    int newType = QMX_MPI_DATATYPE_NULL;
    handleError(QMX_MPI_Type_contiguous(count, oldType, &newType));
    return newType;
}

void MpiCore::DerivedDatatype::commitMpiType(std::size_t size, int& type) {
    QMX_MPI_Aint lowerBound = 0;
    QMX_MPI_Aint extent = 0;
    handleError(QMX_MPI_Type_get_extent(type, &lowerBound, &extent));
    if (static_cast<std::size_t>(extent) != size) {
        int previous = type;
        handleError(QMX_MPI_Type_create_resized(previous, lowerBound, extent, &type));
        handleError(QMX_MPI_Type_free(&previous));
    }
    handleError(QMX_MPI_Type_commit(&type));
}

void MpiCore::DerivedDatatype::freeMpiType(int& type) {
    handleError(QMX_MPI_Type_free(&type));
}

}  // namespace tolm
