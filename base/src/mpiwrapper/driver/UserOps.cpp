#include "mpiwrapper/driver/UserOps.h"

#include <cstdio>

namespace tolm::mpidriver {

namespace {

struct Active {
    QMX_MPI_User_function* function = nullptr;
    int datatype = QMX_MPI_DATATYPE_NULL;
};

thread_local Active active;

// Runs inside MPI's C code, so it must not throw: the active datatype was checked when the
// reduction began, and a type MPI made up on its own gives the null handle.
int qmxDatatypeOf(MPI_Datatype native) noexcept {
    try {
        if (native == handles.types.getOrNull(active.datatype)) {
            return active.datatype;
        }
    } catch (const HandleError&) {
    }
    return handles.types.find(native);
}

}  // namespace

void userOpTrampoline(void* in, void* inout, int* len, MPI_Datatype* datatype) {
    if (!active.function) {
        // Only reachable if MPI ran a user operation outside the blocking reduction that
        // named it; there is no function to call, and silently skipping would corrupt data.
        std::fprintf(stderr, "MPI wrapper: a user reduction ran outside a blocking reduction\n");
        MPI_Abort(MPI_COMM_WORLD, MPI_ERR_OP);
        return;
    }
    int qmxDatatype = qmxDatatypeOf(*datatype);
    active.function(in, inout, len, &qmxDatatype);
}

void ActiveUserOp::activate(QMX_MPI_User_function* function, int datatype) {
    active = Active{function, datatype};
}

void ActiveUserOp::deactivate() {
    active = Active{};
}

}  // namespace tolm::mpidriver
