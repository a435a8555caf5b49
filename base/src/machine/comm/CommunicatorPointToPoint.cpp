#include "machine/comm/CommunicatorCall.h"
#include "machine/comm/PersistentRequestStack.h"
#include "machine/comm/RequestStack.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

constexpr int noPeer = -1;

}  // namespace

const Communicator::Tag Communicator::_defaultTag;

// The self checks keep their conditions in the words users know them by.
void Communicator::refuseSendToSelf() {
    throw InternalError("Cannot send to self", "dest!=_myRank", __FILE__, __LINE__);
}

void Communicator::refuseRecvFromSelf() {
    throw InternalError("Cannot recv from self", "source!=_myRank", __FILE__, __LINE__);
}

void Communicator::syncSendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag) {
    checkSendPeer(dest);
    communicate("Communicator::Send", buffer.bytes(), static_cast<int>(dest), [&] {
        return QMX_MPI_Ssend(buffer.data, buffer.size, buffer.type, static_cast<int>(dest),
                             tag.value(), _handle);
    });
}

void Communicator::iSendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag,
                               MpiCore::RequestStack& requests) {
    checkSendPeer(dest);
    communicate("Communicator::iSend", buffer.bytes(), static_cast<int>(dest), [&] {
        return QMX_MPI_Isend(buffer.data, buffer.size, buffer.type, static_cast<int>(dest),
                             tag.value(), _handle, requests.push_back());
    });
}

void Communicator::iSyncSendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag,
                                   MpiCore::RequestStack& requests) {
    checkSendPeer(dest);
    communicate("Communicator::iSend", buffer.bytes(), static_cast<int>(dest), [&] {
        return QMX_MPI_Issend(buffer.data, buffer.size, buffer.type, static_cast<int>(dest),
                              tag.value(), _handle, requests.push_back());
    });
}

void Communicator::recvFromAnyBuffer(const BufferBase<int>& buffer, unsigned int& source, Tag tag) {
    QMX_MPI_Status_struct status{};
    receive("Communicator::Recv", buffer, MpiCore::ANY_SOURCE, tag, &status);
    source = static_cast<unsigned int>(status.MPI_SOURCE);
}

void Communicator::iRecvBuffer(const BufferBase<int>& buffer, unsigned int source, Tag tag,
                               MpiCore::RequestStack& requests) {
    checkRecvPeer(static_cast<int>(source));
    communicate("Communicator::iRecv", buffer.bytes(), static_cast<int>(source), [&] {
        return QMX_MPI_Irecv(buffer.data, buffer.size, buffer.type, static_cast<int>(source),
                             tag.value(), _handle, requests.push_back());
    });
}

void Communicator::iRecvFromAnyBuffer(const BufferBase<int>& buffer, Tag tag,
                                      MpiCore::RequestStack& requests) {
    communicate("Communicator::iRecv", buffer.bytes(), MpiCore::ANY_SOURCE, [&] {
        return QMX_MPI_Irecv(buffer.data, buffer.size, buffer.type, MpiCore::ANY_SOURCE,
                             tag.value(), _handle, requests.push_back());
    });
}

void Communicator::recvInitBuffer(const BufferBase<int>& buffer, unsigned int source, Tag tag,
                                  MpiCore::PersistentRequestStack& requests) {
    checkRecvPeer(static_cast<int>(source));
    communicate("Communicator::recvInit", buffer.bytes(), static_cast<int>(source), [&] {
        return QMX_MPI_Recv_init(buffer.data, buffer.size, buffer.type, static_cast<int>(source),
                                 tag.value(), _handle, requests.push_back());
    });
}

void Communicator::sendrecvBuffer(const ConstBufferBase<int>& sendbuf, unsigned int dest,
                                  const BufferBase<int>& recvbuf, unsigned int source, Tag tag) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::sendrecv");
    if (dest == _myRank || source == _myRank) {
        throw InternalError("Cannot sendrecv to/from self", "dest!=_myRank && source!=_myRank",
                            __FILE__, __LINE__);
    }
    QMX_MPI_Status_struct status{};
    int err = QMX_MPI_SUCCESS;
    communicate("Communicator::SendRecv", sendbuf.bytes(), static_cast<int>(dest), [&] {
        err = QMX_MPI_Sendrecv(sendbuf.data, sendbuf.size, sendbuf.type, static_cast<int>(dest),
                               tag.value(), recvbuf.data, recvbuf.size, recvbuf.type,
                               static_cast<int>(source), tag.value(), _handle, &status);
        return QMX_MPI_SUCCESS;  // reported below, with the status
    });
    checkStatus(err, &status);
}

void Communicator::_probe(int& source, int& tag, const int& wantedTag, int datatype, int& count) {
    QMX_MPI_Status_struct status{};
    communicate("Communicator::Probe", 0, source,
                [&] { return QMX_MPI_Probe(source, wantedTag, _handle, &status); });
    MpiCore::handleError(QMX_MPI_Get_count(&status, datatype, &count));
    source = status.MPI_SOURCE;
    tag = status.MPI_TAG;
}

bool Communicator::_iProbe(int& source, int& tag, const int& wantedTag, int datatype, int& count) {
    QMX_MPI_Status_struct status{};
    int flag = 0;
    communicate("Communicator::iProbe", 0, source,
                [&] { return QMX_MPI_Iprobe(source, wantedTag, _handle, &flag, &status); });
    if (!flag)
        return false;
    MpiCore::handleError(QMX_MPI_Get_count(&status, datatype, &count));
    source = status.MPI_SOURCE;
    tag = status.MPI_TAG;
    return true;
}

std::uint64_t Communicator::valuesIn(int elements, std::uint64_t elementsPerValue) {
    // QMX_MPI_UNDEFINED (negative) when the message is no whole number of elements.
    TOLM_ASSERT(elements >= 0 && std::uint64_t(elements) % elementsPerValue == 0,
                "Probed message is not a whole number of values of the receiving type");
    return std::uint64_t(elements) / elementsPerValue;
}

void Communicator::wait(MpiCore::RequestStack& requests) {
    communicate("Communicator::Wait", 0, noPeer, [&] {
        requests.wait();
        return QMX_MPI_SUCCESS;
    });
}

void Communicator::wait(MpiCore::RequestStack& requests, std::vector<unsigned int>& sources) {
    communicate("Communicator::Wait", 0, noPeer, [&] {
        requests.wait(sources);
        return QMX_MPI_SUCCESS;
    });
}

bool Communicator::test(MpiCore::RequestStack& requests) {
    bool done = false;
    communicate("Communicator::Test", 0, noPeer, [&] {
        done = requests.test();
        return QMX_MPI_SUCCESS;
    });
    return done;
}

void Communicator::start(MpiCore::PersistentRequestStack& requests) {
    communicate("Communicator::Start", 0, noPeer, [&] {
        requests.start();
        return QMX_MPI_SUCCESS;
    });
}

void Communicator::freeRequest(MpiCore::RequestStack& requests) {
    communicate("Communicator::FreeRequest", 0, noPeer, [&] {
        requests.free();
        return QMX_MPI_SUCCESS;
    });
}

}  // namespace tolm
