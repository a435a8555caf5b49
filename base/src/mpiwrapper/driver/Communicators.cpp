// Communicators and groups. Every communicator the driver creates returns its errors as codes.
#include "mpiwrapper/driver/ArrayScratch.h"
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/ReservedValues.h"

namespace tolm::mpidriver {

namespace {

auto& comms = handles.comms;
auto& groups = handles.groups;

// Runs create(&native) and stores the new communicator (MPI_COMM_NULL gives the null handle).
template <class Create>
int createComm(int* newcomm, Create&& create) {
    require(newcomm != nullptr);
    MPI_Comm native = MPI_COMM_NULL;
    int rc = create(&native);
    if (rc == MPI_SUCCESS && native != MPI_COMM_NULL) {
        rc = MPI_Comm_set_errhandler(native, MPI_ERRORS_RETURN);
    }
    *newcomm = rc == MPI_SUCCESS ? comms.add(native) : QMX_MPI_COMM_NULL;
    return qmxCode(rc);
}

// The empty group has its fixed handle, so that freeing it never reaches MPI.
template <class Create>
int createGroup(int* newgroup, Create&& create) {
    require(newgroup != nullptr);
    MPI_Group native = MPI_GROUP_NULL;
    const int rc = create(&native);
    if (rc != MPI_SUCCESS) {
        *newgroup = QMX_MPI_GROUP_NULL;
    } else {
        *newgroup = native == MPI_GROUP_EMPTY ? QMX_MPI_GROUP_EMPTY : groups.add(native);
    }
    return qmxCode(rc);
}

}  // namespace

int Comm_rank(int comm, int* rank) {
    return guarded([&] { return qmxCode(MPI_Comm_rank(comms.get(comm), rank)); });
}

int Comm_size(int comm, int* size) {
    return guarded([&] { return qmxCode(MPI_Comm_size(comms.get(comm), size)); });
}

int Comm_dup(int comm, int* newcomm) {
    return guarded([&] {
        const MPI_Comm native = comms.get(comm);
        return createComm(newcomm, [&](MPI_Comm* out) { return MPI_Comm_dup(native, out); });
    });
}

int Comm_split(int comm, int color, int key, int* newcomm) {
    return guarded([&] {
        const MPI_Comm native = comms.get(comm);
        const int nativeColor = special::undefinedToNative(color);
        return createComm(
            newcomm, [&](MPI_Comm* out) { return MPI_Comm_split(native, nativeColor, key, out); });
    });
}

int Comm_split_type(int comm, int split_type, int key, int info, int* newcomm) {
    return guarded([&] {
        const MPI_Comm native = comms.get(comm);
        const int nativeType = special::splitTypeToNative(split_type);
        const MPI_Info nativeInfo = handles.infos.getOrNull(info);
        return createComm(newcomm, [&](MPI_Comm* out) {
            return MPI_Comm_split_type(native, nativeType, key, nativeInfo, out);
        });
    });
}

int Comm_create(int comm, int group, int* newcomm) {
    return guarded([&] {
        const MPI_Comm native = comms.get(comm);
        const MPI_Group nativeGroup = groups.get(group);
        return createComm(newcomm,
                          [&](MPI_Comm* out) { return MPI_Comm_create(native, nativeGroup, out); });
    });
}

int Comm_free(int* comm) {
    return guarded([&] {
        require(comm != nullptr);
        require(!comms.isPredefined(*comm), QMX_MPI_ERR_COMM);
        MPI_Comm native = comms.get(*comm);
        const int rc = MPI_Comm_free(&native);
        if (rc == MPI_SUCCESS) {
            comms.release(*comm);
            *comm = QMX_MPI_COMM_NULL;
        }
        return qmxCode(rc);
    });
}

int Comm_compare(int comm1, int comm2, int* result) {
    return guarded([&] {
        require(result != nullptr);
        int native = MPI_UNEQUAL;
        const int rc = MPI_Comm_compare(comms.get(comm1), comms.get(comm2), &native);
        if (rc == MPI_SUCCESS) {
            *result = special::comparisonToQmx(native);
        }
        return qmxCode(rc);
    });
}

int Comm_group(int comm, int* group) {
    return guarded([&] {
        const MPI_Comm native = comms.get(comm);
        return createGroup(group, [&](MPI_Group* out) { return MPI_Comm_group(native, out); });
    });
}

int Comm_get_attr(int comm, int keyval, void* attribute_val, int* flag) {
    return guarded([&] {
        return qmxCode(MPI_Comm_get_attr(comms.get(comm), special::keyvalToNative(keyval),
                                         attribute_val, flag));
    });
}

int Group_incl(int group, int n, const int* ranks, int* newgroup) {
    return guarded([&] {
        const MPI_Group native = groups.get(group);
        return createGroup(newgroup,
                           [&](MPI_Group* out) { return MPI_Group_incl(native, n, ranks, out); });
    });
}

int Group_excl(int group, int n, const int* ranks, int* newgroup) {
    return guarded([&] {
        const MPI_Group native = groups.get(group);
        return createGroup(newgroup,
                           [&](MPI_Group* out) { return MPI_Group_excl(native, n, ranks, out); });
    });
}

int Group_translate_ranks(int group1, int n, const int* ranks1, int group2, int* ranks2) {
    return guarded([&] {
        require(n == 0 || (ranks1 && ranks2));
        int* nativeRanks = sized(scratch.ints, n);
        for (int i = 0; i < n; ++i) {
            nativeRanks[i] = special::rankToNative(ranks1[i]);
        }
        const int rc = MPI_Group_translate_ranks(groups.get(group1), n, nativeRanks,
                                                 groups.get(group2), ranks2);
        for (int i = 0; rc == MPI_SUCCESS && i < n; ++i) {
            ranks2[i] = special::rankToQmx(ranks2[i]);
        }
        return qmxCode(rc);
    });
}

int Group_compare(int group1, int group2, int* result) {
    return guarded([&] {
        require(result != nullptr);
        int native = MPI_UNEQUAL;
        const int rc = MPI_Group_compare(groups.get(group1), groups.get(group2), &native);
        if (rc == MPI_SUCCESS) {
            *result = special::comparisonToQmx(native);
        }
        return qmxCode(rc);
    });
}

int Group_size(int group, int* size) {
    return guarded([&] { return qmxCode(MPI_Group_size(groups.get(group), size)); });
}

int Group_rank(int group, int* rank) {
    return guarded([&] {
        require(rank != nullptr);
        const int rc = MPI_Group_rank(groups.get(group), rank);
        if (rc == MPI_SUCCESS) {
            *rank = special::undefinedToQmx(*rank);
        }
        return qmxCode(rc);
    });
}

int Group_free(int* group) {
    return guarded([&] {
        require(group != nullptr);
        if (*group == QMX_MPI_GROUP_EMPTY) {
            *group = QMX_MPI_GROUP_NULL;
            return QMX_MPI_SUCCESS;
        }
        MPI_Group native = groups.get(*group);
        const int rc = MPI_Group_free(&native);
        if (rc == MPI_SUCCESS) {
            groups.release(*group);
            *group = QMX_MPI_GROUP_NULL;
        }
        return qmxCode(rc);
    });
}

}  // namespace tolm::mpidriver
