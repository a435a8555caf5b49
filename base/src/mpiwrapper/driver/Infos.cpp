// Info objects. QMX_MPI_INFO_ENV is predefined and cannot be freed.
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"

namespace tolm::mpidriver {

namespace {

auto& infos = handles.infos;

// MPI writes keys of up to MPI_MAX_INFO_KEY characters and a terminating zero.
static_assert(MPI_MAX_INFO_KEY + 1 <= QMX_MPI_MAX_INFO_KEY);

}  // namespace

int Info_create(int* info) {
    return guarded([&] {
        require(info != nullptr);
        MPI_Info native = MPI_INFO_NULL;
        const int rc = MPI_Info_create(&native);
        *info = rc == MPI_SUCCESS ? infos.add(native) : QMX_MPI_INFO_NULL;
        return qmxCode(rc);
    });
}

int Info_set(int info, const char* key, const char* value) {
    return guarded([&] { return qmxCode(MPI_Info_set(infos.get(info), key, value)); });
}

int Info_get(int info, const char* key, int valuelen, char* value, int* flag) {
    return guarded(
        [&] { return qmxCode(MPI_Info_get(infos.get(info), key, valuelen, value, flag)); });
}

int Info_get_nkeys(int info, int* nkeys) {
    return guarded([&] { return qmxCode(MPI_Info_get_nkeys(infos.get(info), nkeys)); });
}

int Info_get_nthkey(int info, int n, char* key) {
    return guarded([&] { return qmxCode(MPI_Info_get_nthkey(infos.get(info), n, key)); });
}

int Info_delete(int info, const char* key) {
    return guarded([&] { return qmxCode(MPI_Info_delete(infos.get(info), key)); });
}

int Info_free(int* info) {
    return guarded([&] {
        require(info != nullptr);
        require(!infos.isPredefined(*info), QMX_MPI_ERR_INFO);
        MPI_Info native = infos.get(*info);
        const int rc = MPI_Info_free(&native);
        if (rc == MPI_SUCCESS) {
            infos.release(*info);
            *info = QMX_MPI_INFO_NULL;
        }
        return qmxCode(rc);
    });
}

}  // namespace tolm::mpidriver
