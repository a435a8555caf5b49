// Sends, receives, probes and the counts of received messages.
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/NewRequest.h"
#include "mpiwrapper/driver/ReservedValues.h"
#include "mpiwrapper/driver/StatusTranslation.h"

namespace tolm::mpidriver {

namespace {

auto& comms = handles.comms;
auto& types = handles.types;

using special::rankToNative;
using special::tagToNative;

using NativeSend = int (*)(const void*, int, MPI_Datatype, int, int, MPI_Comm);
using NativeStart = int (*)(const void*, int, MPI_Datatype, int, int, MPI_Comm, MPI_Request*);

int send(NativeSend mpiSend, const void* buf, int count, int datatype, int dest, int tag,
         int comm) {
    return guarded([&] {
        return qmxCode(mpiSend(buf, count, types.get(datatype), rankToNative(dest),
                               tagToNative(tag), comms.get(comm)));
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

}  // namespace

int Send(const void* buf, int count, int datatype, int dest, int tag, int comm) {
    return send(&MPI_Send, buf, count, datatype, dest, tag, comm);
}

int Ssend(const void* buf, int count, int datatype, int dest, int tag, int comm) {
    return send(&MPI_Ssend, buf, count, datatype, dest, tag, comm);
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
        return out.finish(qmxCode(MPI_Recv(buf, count, types.get(datatype), rankToNative(source),
                                           tagToNative(tag), comms.get(comm), out.native())));
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
        return out.finish(qmxCode(MPI_Sendrecv(
            sendbuf, sendcount, types.get(sendtype), rankToNative(dest), tagToNative(sendtag),
            recvbuf, recvcount, types.get(recvtype), rankToNative(source), tagToNative(recvtag),
            comms.get(comm), out.native())));
    });
}

int Probe(int source, int tag, int comm, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        return out.finish(qmxCode(
            MPI_Probe(rankToNative(source), tagToNative(tag), comms.get(comm), out.native())));
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
