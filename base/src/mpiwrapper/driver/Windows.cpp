// Shared-memory windows. Every window the driver creates returns its errors as codes.
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/ReservedValues.h"

namespace tolm::mpidriver {

namespace {

auto& wins = handles.wins;

}  // namespace

int Win_allocate_shared(QMX_MPI_Aint size, int disp_unit, int info, int comm, void* baseptr,
                        int* win) {
    return guarded([&] {
        require(baseptr && win);
        MPI_Win native = MPI_WIN_NULL;
        int rc = MPI_Win_allocate_shared(static_cast<MPI_Aint>(size), disp_unit,
                                         handles.infos.getOrNull(info), handles.comms.get(comm),
                                         baseptr, &native);
        if (rc == MPI_SUCCESS) {
            rc = MPI_Win_set_errhandler(native, MPI_ERRORS_RETURN);
        }
        *win = rc == MPI_SUCCESS ? wins.add(native) : QMX_MPI_WIN_NULL;
        return qmxCode(rc);
    });
}

int Win_shared_query(int win, int rank, QMX_MPI_Aint* size, int* disp_unit, void* baseptr) {
    return guarded([&] {
        require(size && disp_unit && baseptr);
        MPI_Aint nativeSize = 0;
        const int rc = MPI_Win_shared_query(wins.get(win), special::rankToNative(rank), &nativeSize,
                                            disp_unit, baseptr);
        *size = nativeSize;
        return qmxCode(rc);
    });
}

int Win_fence(int assertion, int win) {
    return guarded([&] {
        return qmxCode(MPI_Win_fence(special::windowAssertionToNative(assertion), wins.get(win)));
    });
}

int Win_lock(int lock_type, int rank, int assertion, int win) {
    return guarded([&] {
        return qmxCode(MPI_Win_lock(special::lockTypeToNative(lock_type), rank,
                                    special::windowAssertionToNative(assertion), wins.get(win)));
    });
}

int Win_unlock(int rank, int win) {
    return guarded([&] { return qmxCode(MPI_Win_unlock(rank, wins.get(win))); });
}

int Win_lock_all(int assertion, int win) {
    return guarded([&] {
        return qmxCode(
            MPI_Win_lock_all(special::windowAssertionToNative(assertion), wins.get(win)));
    });
}

int Win_unlock_all(int win) {
    return guarded([&] { return qmxCode(MPI_Win_unlock_all(wins.get(win))); });
}

int Win_sync(int win) {
    return guarded([&] { return qmxCode(MPI_Win_sync(wins.get(win))); });
}

int Win_free(int* win) {
    return guarded([&] {
        require(win != nullptr);
        MPI_Win native = wins.get(*win);
        const int rc = MPI_Win_free(&native);
        if (rc == MPI_SUCCESS) {
            wins.release(*win);
            *win = QMX_MPI_WIN_NULL;
        }
        return qmxCode(rc);
    });
}

}  // namespace tolm::mpidriver
