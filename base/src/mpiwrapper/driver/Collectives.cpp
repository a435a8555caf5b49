// Barriers, data movement and reductions over a communicator, and user operations. Buffers
// may be QMX_MPI_IN_PLACE wherever MPI allows MPI_IN_PLACE.
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/NewRequest.h"
#include "mpiwrapper/driver/ReservedValues.h"
#include "mpiwrapper/driver/UserOps.h"
#include "mpiwrapper/driver/YieldingWait.h"

namespace tolm::mpidriver {

namespace {

auto& comms = handles.comms;
auto& types = handles.types;
auto& ops = handles.ops;

using special::recvBuffer;
using special::sendBuffer;

// The reductions of the form (send, recv, count, type, op, comm). The MPI function is a
// template argument, so that each reduction calls it directly and is one function of its own.
using NativeReduction = int (*)(const void*, void*, int, MPI_Datatype, MPI_Op, MPI_Comm);
using NativeStartReduction = int (*)(const void*, void*, int, MPI_Datatype, MPI_Op, MPI_Comm,
                                     MPI_Request*);

template <NativeReduction mpiReduce, NativeStartReduction mpiStartReduce>
int reduction(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm) {
    return guarded([&] {
        const OpEntry entry = ops.get(op);
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        ActiveUserOp active(entry, datatype);
        return qmxCode(blockingCall<mpiReduce, mpiStartReduce>(
            sendBuffer(sendbuf), recvBuffer(recvbuf), count, nativeType, entry.native, nativeComm));
    });
}

}  // namespace

int Barrier(int comm) {
    return guarded(
        [&] { return qmxCode(blockingCall<&MPI_Barrier, &MPI_Ibarrier>(comms.get(comm))); });
}

int Ibarrier(int comm, int* request) {
    return guarded([&] {
        const MPI_Comm native = comms.get(comm);
        return newRequest(request, [&](MPI_Request* out) { return MPI_Ibarrier(native, out); });
    });
}

int Bcast(void* buffer, int count, int datatype, int root, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Bcast, &MPI_Ibcast>(buffer, count, types.get(datatype),
                                                             root, comms.get(comm)));
    });
}

int Gather(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
           int recvtype, int root, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Gather, &MPI_Igather>(
            sendBuffer(sendbuf), sendcount, types.get(sendtype), recvbuf, recvcount,
            types.get(recvtype), root, comms.get(comm)));
    });
}

int Gatherv(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, const int* recvcounts,
            const int* displs, int recvtype, int root, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Gatherv, &MPI_Igatherv>(
            sendBuffer(sendbuf), sendcount, types.get(sendtype), recvbuf, recvcounts, displs,
            types.get(recvtype), root, comms.get(comm)));
    });
}

int Scatter(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
            int recvtype, int root, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Scatter, &MPI_Iscatter>(
            sendbuf, sendcount, types.get(sendtype), recvBuffer(recvbuf), recvcount,
            types.get(recvtype), root, comms.get(comm)));
    });
}

int Scatterv(const void* sendbuf, const int* sendcounts, const int* displs, int sendtype,
             void* recvbuf, int recvcount, int recvtype, int root, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Scatterv, &MPI_Iscatterv>(
            sendbuf, sendcounts, displs, types.get(sendtype), recvBuffer(recvbuf), recvcount,
            types.get(recvtype), root, comms.get(comm)));
    });
}

int Allgather(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
              int recvtype, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Allgather, &MPI_Iallgather>(
            sendBuffer(sendbuf), sendcount, types.get(sendtype), recvbuf, recvcount,
            types.get(recvtype), comms.get(comm)));
    });
}

int Allgatherv(const void* sendbuf, int sendcount, int sendtype, void* recvbuf,
               const int* recvcounts, const int* displs, int recvtype, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Allgatherv, &MPI_Iallgatherv>(
            sendBuffer(sendbuf), sendcount, types.get(sendtype), recvbuf, recvcounts, displs,
            types.get(recvtype), comms.get(comm)));
    });
}

int Alltoall(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
             int recvtype, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Alltoall, &MPI_Ialltoall>(
            sendBuffer(sendbuf), sendcount, types.get(sendtype), recvbuf, recvcount,
            types.get(recvtype), comms.get(comm)));
    });
}

int Alltoallv(const void* sendbuf, const int* sendcounts, const int* sdispls, int sendtype,
              void* recvbuf, const int* recvcounts, const int* rdispls, int recvtype, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<&MPI_Alltoallv, &MPI_Ialltoallv>(
            sendBuffer(sendbuf), sendcounts, sdispls, types.get(sendtype), recvbuf, recvcounts,
            rdispls, types.get(recvtype), comms.get(comm)));
    });
}

int Reduce(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int root,
           int comm) {
    return guarded([&] {
        const OpEntry entry = ops.get(op);
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        ActiveUserOp active(entry, datatype);
        return qmxCode(blockingCall<&MPI_Reduce, &MPI_Ireduce>(
            sendBuffer(sendbuf), recvbuf, count, nativeType, entry.native, root, nativeComm));
    });
}

int Allreduce(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm) {
    return reduction<&MPI_Allreduce, &MPI_Iallreduce>(sendbuf, recvbuf, count, datatype, op, comm);
}

int Scan(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm) {
    return reduction<&MPI_Scan, &MPI_Iscan>(sendbuf, recvbuf, count, datatype, op, comm);
}

int Exscan(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm) {
    return reduction<&MPI_Exscan, &MPI_Iexscan>(sendbuf, recvbuf, count, datatype, op, comm);
}

int Reduce_scatter(const void* sendbuf, void* recvbuf, const int* recvcounts, int datatype, int op,
                   int comm) {
    return guarded([&] {
        const OpEntry entry = ops.get(op);
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        ActiveUserOp active(entry, datatype);
        return qmxCode(blockingCall<&MPI_Reduce_scatter, &MPI_Ireduce_scatter>(
            sendBuffer(sendbuf), recvbuf, recvcounts, nativeType, entry.native, nativeComm));
    });
}

int Op_create(QMX_MPI_User_function* function, int commute, int* op) {
    return guarded([&] {
        require(function && op);
        MPI_Op native = MPI_OP_NULL;
        const int rc = MPI_Op_create(&userOpTrampoline, commute, &native);
        *op = rc == MPI_SUCCESS ? ops.add(OpEntry{native, function}) : QMX_MPI_OP_NULL;
        return qmxCode(rc);
    });
}

int Op_free(int* op) {
    return guarded([&] {
        require(op != nullptr);
        require(!ops.isPredefined(*op), QMX_MPI_ERR_OP);
        OpEntry entry = ops.get(*op);
        const int rc = MPI_Op_free(&entry.native);
        if (rc == MPI_SUCCESS) {
            ops.release(*op);
            *op = QMX_MPI_OP_NULL;
        }
        return qmxCode(rc);
    });
}

}  // namespace tolm::mpidriver
