#pragma once
// The steps every communicating operation of Communicator shares, and the blocking send and
// receive, which are inline: point-to-point latency counts, and a call into the library would
// cost more than their checks.
#include "machine/comm/Communicator.h"
#include "machine/comm/MpiCore.h"
#include "machine/comm/OperationRecord.h"

namespace tolm {

// The unmeasured case tests one condition before the call, so a send costs next to nothing over
// the wrapper's. The operation record is a handful of stores, read by the roll-call's watchdog.
template <typename WrapperCall>
void Communicator::communicate(const char* operation, std::uint64_t bytes, int peer,
                               WrapperCall&& call) {
    checkSerialCriticalLock();
    OperationRecord::enter(operation, bytes, peer, _handle);
    if (_timerEnabled || _statistics) [[unlikely]] {
        communicateMeasured(operation, bytes, peer, call);
        return;
    }
    const int err = call();
    OperationRecord::leave();
    MpiCore::handleError(err);
}

template <typename WrapperCall>
void Communicator::communicateMeasured(const char* operation, std::uint64_t bytes, int peer,
                                       WrapperCall&& call) {
    const double start = _timerEnabled ? QMX_MPI_Wtime() : 0.0;
    if (_statistics)
        _statistics->open(operation, bytes);
    const int err = call();
    OperationRecord::leave();
    if (_statistics)
        _statistics->close(peer);
    if (_timerEnabled)
        _communicationTime += QMX_MPI_Wtime() - start;
    MpiCore::handleError(err);
}

inline void Communicator::checkStatus(int err, const QMX_MPI_Status_struct* status) {
    // The status form of handleError builds a vector before it looks at the code: keep that
    // off the path of every successful receive.
    if (err != QMX_MPI_SUCCESS) [[unlikely]]
        MpiCore::handleError(err, status ? *status : QMX_MPI_Status_struct{});
}

inline void Communicator::sendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest,
                                     Tag tag) {
    checkSendPeer(dest);
    communicate("Communicator::Send", buffer.bytes(), static_cast<int>(dest), [&] {
        return QMX_MPI_Send(buffer.data, buffer.size, buffer.type, static_cast<int>(dest),
                            tag.value(), _handle);
    });
}

inline void Communicator::recvBuffer(const BufferBase<int>& buffer, unsigned int source, Tag tag) {
    checkRecvPeer(static_cast<int>(source));
    // The sender is known, so MPI need not fill in a status: a single receive reports its
    // error in the return code, and only errors of several requests live in statuses.
    receive("Communicator::Recv", buffer, static_cast<int>(source), tag, QMX_MPI_STATUS_IGNORE);
}

inline void Communicator::receive(const char* operation, const BufferBase<int>& buffer, int source,
                                  Tag tag, QMX_MPI_Status_struct* status) {
    int err = QMX_MPI_SUCCESS;
    communicate(operation, buffer.bytes(), source, [&] {
        err = QMX_MPI_Recv(buffer.data, buffer.size, buffer.type, source, tag.value(), _handle,
                           status);
        return QMX_MPI_SUCCESS;  // reported below, with the status
    });
    checkStatus(err, status);
}

// The broadcast and the all-reduce are inline too: with small messages they are latencies.
inline void Communicator::broadcastBuffer(const BufferBase<unsigned int>& buffer,
                                          unsigned int root) {
    if (buffer.size == 0)
        return;
    if (exceedsSizeLimits(buffer.size, buffer.elementSize)) [[unlikely]] {
        broadcastInHalves(buffer, root);
        return;
    }
    communicate("Communicator::Broadcast", buffer.bytes(), collectivePeer, [&] {
        return QMX_MPI_Bcast(buffer.data, static_cast<int>(buffer.size), buffer.type,
                             static_cast<int>(root), _handle);
    });
}

inline void Communicator::_allReduce(const BufferBase<int>& buffer, int op) {
    if (buffer.size == 0)
        return;
    communicate("Communicator::AllReduce", buffer.bytes(), collectivePeer, [&] {
        return QMX_MPI_Allreduce(QMX_MPI_IN_PLACE, buffer.data, buffer.size, buffer.type, op,
                                 _handle);
    });
}

}  // namespace tolm
