// Sends, receives, probes and the counts of received messages.
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/NewRequest.h"
#include "mpiwrapper/driver/ReservedValues.h"
#include "mpiwrapper/driver/StatusTranslation.h"
#include "mpiwrapper/driver/YieldingWait.h"

namespace tolm::mpidriver {

namespace {

auto& comms = handles.comms;
auto& types = handles.types;

using special::rankToNative;
using special::tagToNative;

using NativeSend = int (*)(const void*, int, MPI_Datatype, int, int, MPI_Comm);
using NativeStart = int (*)(const void*, int, MPI_Datatype, int, int, MPI_Comm, MPI_Request*);

template <NativeSend mpiSend, NativeStart mpiStart>
int send(const void* buf, int count, int datatype, int dest, int tag, int comm) {
    return guarded([&] {
        return qmxCode(blockingCall<mpiSend, mpiStart>(buf, count, types.get(datatype),
                                                       rankToNative(dest), tagToNative(tag),
                                                       comms.get(comm)));
    });
}

int startSend(NativeStart mpiStart, const void* buf, int count, int datatype, int dest, int tag,
              int comm, int* request) {
    return guarded([&] {
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        const int nativeDest = rankToNative(dest);
        return newRequest(request, [&](MPI_Request* native) {
            return mpiStart(buf, count, nativeType, nativeDest, tagToNative(tag), nativeComm,
                            native);
        });
    });
}

// A receive from MPI_PROC_NULL completes at once; its non-blocking form leaves MPICH's
// status unset, so it takes the blocking form.
int receiveYielding(void* buf, int count, MPI_Datatype type, int source, int tag, MPI_Comm comm,
                    MPI_Status* status) {
    if (source == MPI_PROC_NULL) {
        return MPI_Recv(buf, count, type, source, tag, comm, status);
    }
    MPI_Request request = MPI_REQUEST_NULL;
    const int rc = MPI_Irecv(buf, count, type, source, tag, comm, &request);
    return rc == MPI_SUCCESS ? waitYielding(&request, status) : rc;
}

// The receive is posted first, as MPI_Sendrecv may match it before the send completes.
int sendReceiveYielding(const void* sendbuf, int sendcount, MPI_Datatype sendtype, int dest,
                        int sendtag, void* recvbuf, int recvcount, MPI_Datatype recvtype,
                        int source, int recvtag, MPI_Comm comm, MPI_Status* status) {
    if (source == MPI_PROC_NULL) {
        MPI_Request request = MPI_REQUEST_NULL;
        const int rc = MPI_Isend(sendbuf, sendcount, sendtype, dest, sendtag, comm, &request);
        if (rc != MPI_SUCCESS) {
            return rc;
        }
        const int sent = waitYielding(&request, MPI_STATUS_IGNORE);
        const int received = MPI_Recv(recvbuf, recvcount, recvtype, source, recvtag, comm, status);
        return sent != MPI_SUCCESS ? sent : received;
    }
    MPI_Request requests[2] = {MPI_REQUEST_NULL, MPI_REQUEST_NULL};
    int rc = MPI_Irecv(recvbuf, recvcount, recvtype, source, recvtag, comm, &requests[0]);
    if (rc != MPI_SUCCESS) {
        return rc;
    }
    rc = MPI_Isend(sendbuf, sendcount, sendtype, dest, sendtag, comm, &requests[1]);
    if (rc != MPI_SUCCESS) {
        MPI_Cancel(&requests[0]);
        MPI_Request_free(&requests[0]);
        return rc;
    }
    MPI_Status statuses[2];
    rc = waitAllYielding(2, requests, statuses);
    if (rc == MPI_ERR_IN_STATUS) {
        rc = statuses[0].MPI_ERROR != MPI_SUCCESS ? statuses[0].MPI_ERROR : statuses[1].MPI_ERROR;
    }
    if (status != MPI_STATUS_IGNORE) {
        *status = statuses[0];
    }
    return rc;
}

}  // namespace

int Send(const void* buf, int count, int datatype, int dest, int tag, int comm) {
    return send<&MPI_Send, &MPI_Isend>(buf, count, datatype, dest, tag, comm);
}

int Ssend(const void* buf, int count, int datatype, int dest, int tag, int comm) {
    return send<&MPI_Ssend, &MPI_Issend>(buf, count, datatype, dest, tag, comm);
}

int Isend(const void* buf, int count, int datatype, int dest, int tag, int comm, int* request) {
    return startSend(&MPI_Isend, buf, count, datatype, dest, tag, comm, request);
}

int Issend(const void* buf, int count, int datatype, int dest, int tag, int comm, int* request) {
    return startSend(&MPI_Issend, buf, count, datatype, dest, tag, comm, request);
}

int Send_init(const void* buf, int count, int datatype, int dest, int tag, int comm, int* request) {
    return startSend(&MPI_Send_init, buf, count, datatype, dest, tag, comm, request);
}

int Recv(void* buf, int count, int datatype, int source, int tag, int comm,
         QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        if (yieldingWaits()) [[unlikely]] {
            return out.finish(qmxCode(receiveYielding(buf, count, nativeType, rankToNative(source),
                                                      tagToNative(tag), nativeComm, out.native())));
        }
        return out.finish(qmxCode(MPI_Recv(buf, count, nativeType, rankToNative(source),
                                           tagToNative(tag), nativeComm, out.native())));
    });
}

int Irecv(void* buf, int count, int datatype, int source, int tag, int comm, int* request) {
    return guarded([&] {
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        const int nativeSource = rankToNative(source);
        return newRequest(request, [&](MPI_Request* native) {
            return MPI_Irecv(buf, count, nativeType, nativeSource, tagToNative(tag), nativeComm,
                             native);
        });
    });
}

int Recv_init(void* buf, int count, int datatype, int source, int tag, int comm, int* request) {
    return guarded([&] {
        const MPI_Datatype nativeType = types.get(datatype);
        const MPI_Comm nativeComm = comms.get(comm);
        const int nativeSource = rankToNative(source);
        return newRequest(request, [&](MPI_Request* native) {
            return MPI_Recv_init(buf, count, nativeType, nativeSource, tagToNative(tag), nativeComm,
                                 native);
        });
    });
}

int Sendrecv(const void* sendbuf, int sendcount, int sendtype, int dest, int sendtag, void* recvbuf,
             int recvcount, int recvtype, int source, int recvtag, int comm,
             QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        if (yieldingWaits()) [[unlikely]] {
            return out.finish(qmxCode(sendReceiveYielding(
                sendbuf, sendcount, types.get(sendtype), rankToNative(dest), tagToNative(sendtag),
                recvbuf, recvcount, types.get(recvtype), rankToNative(source), tagToNative(recvtag),
                comms.get(comm), out.native())));
        }
        return out.finish(qmxCode(MPI_Sendrecv(
            sendbuf, sendcount, types.get(sendtype), rankToNative(dest), tagToNative(sendtag),
            recvbuf, recvcount, types.get(recvtype), rankToNative(source), tagToNative(recvtag),
            comms.get(comm), out.native())));
    });
}

int Probe(int source, int tag, int comm, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        const auto probe = yieldingWaits() ? &probeYielding : &MPI_Probe;
        return out.finish(
            qmxCode(probe(rankToNative(source), tagToNative(tag), comms.get(comm), out.native())));
    });
}

int Iprobe(int source, int tag, int comm, int* flag, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        require(flag != nullptr);
        SingleStatus out(status);
        const int code = qmxCode(MPI_Iprobe(rankToNative(source), tagToNative(tag), comms.get(comm),
                                            flag, out.native()));
        return out.finish(code, code == QMX_MPI_SUCCESS && *flag);
    });
}

int Get_count(const QMX_MPI_Status_struct* status, int datatype, int* count) {
    return guarded([&] {
        require(status && count);
        const MPI_Status native = toNative(*status);
        const int rc = MPI_Get_count(&native, types.get(datatype), count);
        if (rc == MPI_SUCCESS) {
            *count = special::undefinedToQmx(*count);
        }
        return qmxCode(rc);
    });
}

int Test_cancelled(const QMX_MPI_Status_struct* status, int* flag) {
    return guarded([&] {
        require(status && flag);
        const MPI_Status native = toNative(*status);
        return qmxCode(MPI_Test_cancelled(&native, flag));
    });
}

}  // namespace tolm::mpidriver
