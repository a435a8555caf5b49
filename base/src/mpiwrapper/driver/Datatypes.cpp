// Derived datatypes. Predefined datatypes have fixed handles and cannot be freed.
#include <type_traits>

#include "mpiwrapper/driver/ArrayScratch.h"
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"

namespace tolm::mpidriver {

namespace {

auto& types = handles.types;

template <class Create>
int createType(int* newtype, Create&& create) {
    require(newtype != nullptr);
    MPI_Datatype native = MPI_DATATYPE_NULL;
    const int rc = create(&native);
    *newtype = rc == MPI_SUCCESS ? types.add(native) : QMX_MPI_DATATYPE_NULL;
    return qmxCode(rc);
}

// The displacements as MPI_Aint: the caller's array itself where the types agree.
const MPI_Aint* nativeDisplacements(int count, const QMX_MPI_Aint* displacements) {
    if constexpr (std::is_same_v<MPI_Aint, QMX_MPI_Aint>) {
        return displacements;
    } else {
        MPI_Aint* natives = sized(scratch.displacements, count);
        for (int i = 0; i < count; ++i) {
            natives[i] = static_cast<MPI_Aint>(displacements[i]);
        }
        return natives;
    }
}

}  // namespace

int Type_contiguous(int count, int oldtype, int* newtype) {
    return guarded([&] {
        const MPI_Datatype old = types.get(oldtype);
        return createType(newtype,
                          [&](MPI_Datatype* out) { return MPI_Type_contiguous(count, old, out); });
    });
}

int Type_create_struct(int count, const int* blocklengths, const QMX_MPI_Aint* displacements,
                       const int* typesIn, int* newtype) {
    return guarded([&] {
        require(count == 0 || (blocklengths && displacements && typesIn));
        MPI_Datatype* nativeTypes = sized(scratch.types, count);
        for (int i = 0; i < count; ++i) {
            nativeTypes[i] = types.get(typesIn[i]);
        }
        const MPI_Aint* nativeDispls = nativeDisplacements(count, displacements);
        return createType(newtype, [&](MPI_Datatype* out) {
            return MPI_Type_create_struct(count, blocklengths, nativeDispls, nativeTypes, out);
        });
    });
}

int Type_create_resized(int oldtype, QMX_MPI_Aint lb, QMX_MPI_Aint extent, int* newtype) {
    return guarded([&] {
        const MPI_Datatype old = types.get(oldtype);
        return createType(newtype, [&](MPI_Datatype* out) {
            return MPI_Type_create_resized(old, static_cast<MPI_Aint>(lb),
                                           static_cast<MPI_Aint>(extent), out);
        });
    });
}

int Type_get_extent(int datatype, QMX_MPI_Aint* lb, QMX_MPI_Aint* extent) {
    return guarded([&] {
        require(lb && extent);
        MPI_Aint nativeLb = 0;
        MPI_Aint nativeExtent = 0;
        const int rc = MPI_Type_get_extent(types.get(datatype), &nativeLb, &nativeExtent);
        *lb = nativeLb;
        *extent = nativeExtent;
        return qmxCode(rc);
    });
}

int Type_size(int datatype, int* size) {
    return guarded([&] { return qmxCode(MPI_Type_size(types.get(datatype), size)); });
}

int Type_commit(int* datatype) {
    return guarded([&] {
        require(datatype != nullptr);
        MPI_Datatype native = types.get(*datatype);
        const int rc = MPI_Type_commit(&native);
        if (rc == MPI_SUCCESS && !types.isPredefined(*datatype)) {
            *datatype = types.update(*datatype, native);
        }
        return qmxCode(rc);
    });
}

int Type_free(int* datatype) {
    return guarded([&] {
        require(datatype != nullptr);
        require(!types.isPredefined(*datatype), QMX_MPI_ERR_TYPE);
        MPI_Datatype native = types.get(*datatype);
        const int rc = MPI_Type_free(&native);
        if (rc == MPI_SUCCESS) {
            types.release(*datatype);
            *datatype = QMX_MPI_DATATYPE_NULL;
        }
        return qmxCode(rc);
    });
}

}  // namespace tolm::mpidriver
