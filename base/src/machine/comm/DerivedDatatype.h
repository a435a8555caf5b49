#pragma once
#include <cstddef>
#include <cstdint>

#include "machine/comm/MpiCore.h"

namespace tolm {

// Datatypes for buffers of user records. The handle belongs to the caller, who frees it.
class MpiCore::DerivedDatatype {
  public:
    static int defineMpiStructType(int count, const int* blockLengths,
                                   const std::int64_t* displacements, const int* types);
    static int defineMpiContiguousType(int count, const int& oldType);
    // Commits `type`; when its extent differs from `size` it is first replaced by a resized
    // copy (built with the extent read back from MPI) and the old handle freed.
    static void commitMpiType(std::size_t size, int& type);
    static void freeMpiType(int& type);
};

}  // namespace tolm
