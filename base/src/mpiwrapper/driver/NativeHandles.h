// The driver's handle tables, one per kind of MPI object, with the predefined objects in
// their fixed slots. A single process-wide instance, `handles`; MPI is called by one thread at
// a time, so the tables need no lock.
#pragma once

#include <mpi.h>

#include "mpiwrapper/driver/HandleTable.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpidriver {

// A reduction operation: the native operation and, for a user operation, the wrapper-level
// function that the native trampoline calls.
struct OpEntry {
    MPI_Op native;
    QMX_MPI_User_function* function;
    bool operator==(const OpEntry&) const = default;
};

struct NativeHandles {
    NativeHandles();

    HandleTable<MPI_Comm> comms;
    HandleTable<MPI_Group> groups;
    HandleTable<MPI_Request> requests;
    HandleTable<MPI_Datatype> types;
    HandleTable<OpEntry> ops;
    HandleTable<MPI_Win> wins;
    HandleTable<MPI_File> files;
    HandleTable<MPI_Info> infos;
};

extern NativeHandles handles;

}  // namespace tolm::mpidriver
