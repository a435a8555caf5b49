#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>

#include "machine/comm/CommunicatorCall.h"
#include "machine/comm/CustomReductionBuffer.h"
#include "machine/comm/DerivedDatatype.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

// The first `count` elements of `buffer`, from element `offset` on.
BufferBase<unsigned int> piece(const BufferBase<unsigned int>& buffer, std::uint64_t offset,
                               unsigned int count) {
    return {static_cast<char*>(buffer.data) + offset * buffer.elementSize, count, buffer.type,
            buffer.elementSize};
}

const char* at(const ConstBufferBase<unsigned int>& buffer, std::uint64_t offset) {
    return static_cast<const char*>(buffer.data) + offset * buffer.elementSize;
}

char* at(const BufferBase<unsigned int>& buffer, std::uint64_t offset) {
    return static_cast<char*>(buffer.data) + offset * buffer.elementSize;
}

// Moves the rank-by-rank blocks of `count` elements that one piece of a split gather brought
// in to their places in `recv`, whose rank blocks are `stride` elements long.
void spreadBlocks(const std::vector<char>& pieces, const BufferBase<unsigned int>& recv,
                  unsigned int ranks, unsigned int stride, unsigned int offset,
                  unsigned int count) {
    const std::uint64_t blockBytes = std::uint64_t(count) * recv.elementSize;
    for (unsigned int rank = 0; rank < ranks; ++rank) {
        std::memcpy(at(recv, std::uint64_t(rank) * stride + offset),
                    pieces.data() + rank * blockBytes, blockBytes);
    }
}

std::uint64_t sum(const Communicator::UnsignedCounts& counts) {
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t(0));
}

std::vector<int> asInts(const Communicator::UnsignedCounts& values) {
    std::vector<int> narrowed(values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        narrowed[i] = MessageLimits::toInt(values[i]);
    return narrowed;
}

// Calls `call(counts, displacements, ownOffset)` once per piece: each rank's block is halved
// until a piece fits one MPI call. `ownOffset` is where this rank's share of the piece starts
// within its own block.
template <typename Call>
void splitBlocks(const Communicator& comm, const Communicator::UnsignedCounts& counts,
                 const Communicator::UnsignedCounts& displacements, unsigned int elementSize,
                 std::uint64_t ownOffset, Call&& call) {
    const std::uint64_t total = sum(counts);
    if (total == 0)
        return;
    if (!comm.exceedsSizeLimits(total, elementSize)) {
        call(counts, displacements, ownOffset);
        return;
    }
    if (*std::max_element(counts.begin(), counts.end()) <= 1) {
        MessageLimits::throwOversizedMessage(total, total * elementSize);
    }
    Communicator::UnsignedCounts first(counts.size()), second(counts.size());
    Communicator::UnsignedCounts secondDisplacements(counts.size());
    for (std::size_t i = 0; i < counts.size(); ++i) {
        first[i] = counts[i] / 2;
        second[i] = counts[i] - first[i];
        secondDisplacements[i] = displacements[i] + first[i];
    }
    splitBlocks(comm, first, displacements, elementSize, ownOffset, call);
    splitBlocks(comm, second, secondDisplacements, elementSize, ownOffset + first[comm.myRank()],
                call);
}

}  // namespace

void Communicator::broadcastInHalves(const BufferBase<unsigned int>& buffer, unsigned int root) {
    if (buffer.size == 1)
        MessageLimits::throwOversizedMessage(buffer.size, buffer.bytes());
    const unsigned int first = buffer.size / 2;
    broadcastBuffer(piece(buffer, 0, first), root);
    broadcastBuffer(piece(buffer, first, buffer.size - first), root);
}

void Communicator::broadcast(std::string& text, unsigned int root) {
    std::uint64_t length = text.size();
    broadcast(length, root);
    text.resize(length);
    broadcast(text.data(), length, root);
}

void Communicator::broadcast(std::vector<std::string>& texts, unsigned int root) {
    // Lengths first, then all characters in one message.
    std::vector<std::uint64_t> lengths(texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i)
        lengths[i] = texts[i].size();
    broadcast(lengths, root);
    std::string joined;
    if (myRank() == root) {
        for (const auto& text : texts)
            joined += text;
    }
    broadcast(joined, root);
    texts.resize(lengths.size());
    std::uint64_t offset = 0;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        texts[i] = joined.substr(offset, lengths[i]);
        offset += lengths[i];
    }
}

bool Communicator::fitsOneCall(std::uint64_t totalCount, unsigned int elementSize,
                               unsigned int count) const {
    if (!exceedsSizeLimits(totalCount, elementSize))
        return true;
    if (count <= 1)
        MessageLimits::throwOversizedMessage(totalCount, totalCount * elementSize);
    return false;
}

template <typename Piece>
void Communicator::inFittingPieces(unsigned int count, unsigned int elementSize,
                                   const Piece& piece, unsigned int offset) const {
    if (fitsOneCall(std::uint64_t(count) * size(), elementSize, count)) {
        piece(offset, count);
        return;
    }
    const unsigned int first = count / 2;
    inFittingPieces(first, elementSize, piece, offset);
    inFittingPieces(count - first, elementSize, piece, offset + first);
}

void Communicator::gather(const ConstBufferBase<unsigned int>& sendbuf,
                          const BufferBase<unsigned int>& recvbuf, unsigned int root) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::gather : Mismatch in gather types");
    if (sendbuf.size == 0)
        return;
    inFittingPieces(sendbuf.size, sendbuf.elementSize, [&](unsigned int offset, unsigned int count) {
        gatherPiece(sendbuf, recvbuf, sendbuf.size, offset, count, root);
    });
}

void Communicator::gatherPiece(const ConstBufferBase<unsigned int>& send,
                               const BufferBase<unsigned int>& recv, unsigned int stride,
                               unsigned int offset, unsigned int count, unsigned int root) {
    const std::uint64_t total = std::uint64_t(count) * size();
    const bool whole = count == stride;
    const bool isRoot = myRank() == root;
    std::vector<char> pieces(!whole && isRoot ? total * send.elementSize : 0);
    void* target = whole ? recv.data : pieces.data();
    communicate("Communicator::Gather", std::uint64_t(count) * send.elementSize,
                Communicator::collectivePeer, [&] {
                    return QMX_MPI_Gather(at(send, offset), int(count), send.type, target,
                                          int(count), recv.type, int(root), _handle);
                });
    if (whole || !isRoot)
        return;
    spreadBlocks(pieces, recv, size(), stride, offset, count);
}

void Communicator::allGather(const ConstBufferBase<unsigned int>& sendbuf,
                             const BufferBase<unsigned int>& recvbuf) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::allGather : Mismatch in gather types");
    if (sendbuf.size == 0)
        return;
    inFittingPieces(sendbuf.size, sendbuf.elementSize, [&](unsigned int offset, unsigned int count) {
        allGatherPiece(sendbuf, recvbuf, sendbuf.size, offset, count);
    });
}

void Communicator::allGatherPiece(const ConstBufferBase<unsigned int>& send,
                                  const BufferBase<unsigned int>& recv, unsigned int stride,
                                  unsigned int offset, unsigned int count) {
    const std::uint64_t total = std::uint64_t(count) * size();
    const bool whole = count == stride;
    std::vector<char> pieces(whole ? 0 : total * send.elementSize);
    void* target = whole ? recv.data : pieces.data();
    communicate("Communicator::AllGather", std::uint64_t(count) * send.elementSize,
                Communicator::collectivePeer, [&] {
                    return QMX_MPI_Allgather(at(send, offset), int(count), send.type, target,
                                             int(count), recv.type, _handle);
                });
    if (whole)
        return;
    spreadBlocks(pieces, recv, size(), stride, offset, count);
}

void Communicator::scatter(const ConstBufferBase<unsigned int>& sendbuf,
                           const BufferBase<unsigned int>& recvbuf, unsigned int root) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::scatter : Mismatch in gather types");
    if (recvbuf.size == 0)
        return;
    inFittingPieces(recvbuf.size, recvbuf.elementSize, [&](unsigned int offset, unsigned int count) {
        scatterPiece(sendbuf, recvbuf, recvbuf.size, offset, count, root);
    });
}

void Communicator::scatterPiece(const ConstBufferBase<unsigned int>& send,
                                const BufferBase<unsigned int>& recv, unsigned int stride,
                                unsigned int offset, unsigned int count, unsigned int root) {
    const std::uint64_t total = std::uint64_t(count) * size();
    const bool whole = count == stride;
    const bool isRoot = myRank() == root;
    const std::uint64_t blockBytes = std::uint64_t(count) * recv.elementSize;
    std::vector<char> pieces(!whole && isRoot ? total * recv.elementSize : 0);
    for (unsigned int rank = 0; rank < size() && !pieces.empty(); ++rank) {
        std::memcpy(pieces.data() + rank * blockBytes,
                    at(send, std::uint64_t(rank) * stride + offset), blockBytes);
    }
    const void* source = whole ? send.data : pieces.data();
    communicate("Communicator::Scatter", blockBytes, Communicator::collectivePeer, [&] {
        return QMX_MPI_Scatter(source, int(count), send.type, at(recv, offset), int(count),
                               recv.type, int(root), _handle);
    });
}

template <typename Counts>
void Communicator::checkRecvCounts(const Counts& counts) const {
    using SizeType = typename Counts::value_type;
    TOLM_ASSERT(counts.size() <= std::size_t(std::numeric_limits<SizeType>::max()),
                "Overflow in recv counts container");
    std::uint64_t total = 0;
    for (const auto count : counts)
        total += std::uint64_t(count);
    MessageLimits::checkTotalCount(total);
}

void Communicator::gatherVector(const ConstBufferBase<int>& sendbuf, const BufferBase<int>& recvbuf,
                                const IntCounts& counts, const IntCounts& displacements,
                                unsigned int root) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type,
                "Communicator::gatherVector : Mismatch in gather types");
    const bool isRoot = myRank() == root;
    IntCounts defaults;
    if (isRoot) {
        checkRecvCounts(counts);
        if (displacements.empty()) {
            UnsignedCounts unsignedCounts(counts.begin(), counts.end()), unsignedDisplacements;
            getDefaultDisplacements(unsignedCounts, unsignedDisplacements);
            defaults = asInts(unsignedDisplacements);
        }
    }
    const IntCounts& displs = displacements.empty() ? defaults : displacements;
    communicate("Communicator::GatherVector", sendbuf.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Gatherv(sendbuf.data, sendbuf.size, sendbuf.type, recvbuf.data,
                               isRoot ? counts.data() : nullptr, isRoot ? displs.data() : nullptr,
                               recvbuf.type, int(root), _handle);
    });
}

void Communicator::gatherVector(const ConstBufferBase<unsigned int>& sendbuf,
                                const BufferBase<unsigned int>& recvbuf,
                                const UnsignedCounts& counts, const UnsignedCounts& displacements,
                                unsigned int root) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type,
                "Communicator::gatherVector : Mismatch in gather types");
    TOLM_ASSERT(counts.size() == size(), "Split gathers need every rank's count on every rank");
    checkRecvCounts(counts);
    UnsignedCounts displs = displacements;
    if (displs.empty())
        getDefaultDisplacements(counts, displs);
    splitBlocks(*this, counts, displs, sendbuf.elementSize, 0,
                [&](const UnsignedCounts& c, const UnsignedCounts& d, std::uint64_t own) {
                    const IntCounts intCounts = asInts(c), intDispls = asInts(d);
                    communicate("Communicator::GatherVector",
                                std::uint64_t(c[myRank()]) * sendbuf.elementSize,
                                Communicator::collectivePeer, [&] {
                                    return QMX_MPI_Gatherv(at(sendbuf, own), intCounts[myRank()],
                                                           sendbuf.type, recvbuf.data,
                                                           intCounts.data(), intDispls.data(),
                                                           recvbuf.type, int(root), _handle);
                                });
                });
}

void Communicator::allGatherVector(const ConstBufferBase<unsigned int>& sendbuf,
                                   const BufferBase<unsigned int>& recvbuf,
                                   const UnsignedCounts& counts,
                                   const UnsignedCounts& displacements) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type,
                "Communicator::allGatherVector : Mismatch in gather types");
    TOLM_ASSERT(counts.size() == size(), "Every rank's count is needed on every rank");
    checkRecvCounts(counts);
    UnsignedCounts displs = displacements;
    if (displs.empty())
        getDefaultDisplacements(counts, displs);
    splitBlocks(*this, counts, displs, sendbuf.elementSize, 0,
                [&](const UnsignedCounts& c, const UnsignedCounts& d, std::uint64_t own) {
                    if (size() == 1) {
                        // MPICH 4.0 ignores the displacement of a one-rank all-gather; on one
                        // rank the operation is a copy anyway.
                        std::memmove(at(recvbuf, d[0]), at(sendbuf, own),
                                     std::uint64_t(c[0]) * sendbuf.elementSize);
                        return;
                    }
                    const IntCounts intCounts = asInts(c), intDispls = asInts(d);
                    communicate("Communicator::AllGatherVector",
                                std::uint64_t(c[myRank()]) * sendbuf.elementSize,
                                Communicator::collectivePeer, [&] {
                                    return QMX_MPI_Allgatherv(at(sendbuf, own), intCounts[myRank()],
                                                              sendbuf.type, recvbuf.data,
                                                              intCounts.data(), intDispls.data(),
                                                              recvbuf.type, _handle);
                                });
                });
}

void Communicator::scatterVector(const ConstBufferBase<int>& sendbuf, const IntCounts& counts,
                                 const IntCounts& displacements, const BufferBase<int>& recvbuf,
                                 unsigned int root) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type,
                "Communicator::scatterVector : Mismatch in gather types");
    const bool isRoot = myRank() == root;
    IntCounts defaults;
    if (isRoot && displacements.empty()) {
        UnsignedCounts unsignedCounts(counts.begin(), counts.end()), unsignedDisplacements;
        getDefaultDisplacements(unsignedCounts, unsignedDisplacements);
        defaults = asInts(unsignedDisplacements);
    }
    const IntCounts& displs = displacements.empty() ? defaults : displacements;
    communicate("Communicator::ScatterVector", recvbuf.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Scatterv(sendbuf.data, isRoot ? counts.data() : nullptr,
                                isRoot ? displs.data() : nullptr, sendbuf.type, recvbuf.data,
                                recvbuf.size, recvbuf.type, int(root), _handle);
    });
}

void Communicator::scatterVector(const ConstBufferBase<unsigned int>& sendbuf,
                                 const UnsignedCounts& counts, const UnsignedCounts& displacements,
                                 const BufferBase<unsigned int>& recvbuf, unsigned int root) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type,
                "Communicator::scatterVector : Mismatch in gather types");
    TOLM_ASSERT(counts.size() == size(), "Split scatters need every rank's count on every rank");
    UnsignedCounts displs = displacements;
    if (displs.empty())
        getDefaultDisplacements(counts, displs);
    splitBlocks(*this, counts, displs, recvbuf.elementSize, 0,
                [&](const UnsignedCounts& c, const UnsignedCounts& d, std::uint64_t own) {
                    const IntCounts intCounts = asInts(c), intDispls = asInts(d);
                    communicate("Communicator::ScatterVector",
                                std::uint64_t(c[myRank()]) * recvbuf.elementSize,
                                Communicator::collectivePeer, [&] {
                                    return QMX_MPI_Scatterv(sendbuf.data, intCounts.data(),
                                                            intDispls.data(), sendbuf.type,
                                                            at(recvbuf, own), intCounts[myRank()],
                                                            recvbuf.type, int(root), _handle);
                                });
                });
}

void Communicator::allToAll(const ConstBufferBase<int>& sendbuf, const BufferBase<int>& recvbuf) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::allToAll : Mismatch in gather types");
    const int perRank = sendbuf.size / int(size());
    communicate("Communicator::AllToAll", sendbuf.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Alltoall(sendbuf.data, perRank, sendbuf.type, recvbuf.data, perRank,
                                recvbuf.type, _handle);
    });
}

void Communicator::allToAllVector(const ConstBufferBase<int>& sendbuf, const IntCounts& sendCounts,
                                  const IntCounts& sendDispl, const BufferBase<int>& recvbuf,
                                  const IntCounts& recvCounts, const IntCounts& recvDispl) {
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::allToAll : Mismatch in gather types");
    checkRecvCounts(recvCounts);
    communicate("Communicator::AllToAllVector", sendbuf.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Alltoallv(sendbuf.data, sendCounts.data(), sendDispl.data(), sendbuf.type,
                                 recvbuf.data, recvCounts.data(), recvDispl.data(), recvbuf.type,
                                 _handle);
    });
}

void Communicator::reduceScatter(const ConstBufferBase<int>& sendbuf,
                                 const BufferBase<int>& recvbuf, int op) {
    using SizeType = int;
    TOLM_ASSERT(sendbuf.type == recvbuf.type, "Communicator::reduceScatter : mismatched types");
    // The condition's text is part of the error, so it keeps its spelling.
    // clang-format off
    TOLM_ASSERT(sendbuf.size == SizeType(size())*recvbuf.size,
                "Communicator::reduceScatter : mismatched counts");
    // clang-format on
    const IntCounts counts(size(), recvbuf.size);
    communicate("Communicator::reduceScatter", sendbuf.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Reduce_scatter(sendbuf.data, recvbuf.data, counts.data(), sendbuf.type, op,
                                      _handle);
    });
}

void Communicator::_reduce(const BufferBase<int>& buffer, int op, unsigned int root) {
    if (buffer.size == 0)
        return;
    const bool isRoot = myRank() == root;
    communicate("Communicator::Reduce", buffer.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Reduce(isRoot ? QMX_MPI_IN_PLACE : buffer.data,
                              isRoot ? buffer.data : nullptr, buffer.size, buffer.type, op,
                              int(root), _handle);
    });
}

void Communicator::_scan(const BufferBase<int>& buffer, int op) {
    if (buffer.size == 0)
        return;
    communicate("Communicator::scan", buffer.bytes(), Communicator::collectivePeer, [&] {
        return QMX_MPI_Scan(QMX_MPI_IN_PLACE, buffer.data, buffer.size, buffer.type, op, _handle);
    });
}

void Communicator::userReduction(QMX_MPI_User_function* function,
                                 const std::function<void(int op)>& reduction) {
    int op = QMX_MPI_OP_NULL;
    int err = QMX_MPI_Op_create(function, 1, &op);
    TOLM_ASSERT(err == QMX_MPI_SUCCESS, "Failed to create reduction op");
    reduction(op);
    err = QMX_MPI_Op_free(&op);
    TOLM_ASSERT(err == QMX_MPI_SUCCESS, "Failed to delete reduction op");
}

void Communicator::reduce(CustomReductionBuffer& buffer, QMX_MPI_User_function* function,
                          unsigned int root) {
    userReduction(function, [&](int op) { _reduce(buffer.get(), op, root); });
}

void Communicator::allReduce(CustomReductionBuffer& buffer, QMX_MPI_User_function* function) {
    userReduction(function, [&](int op) { _allReduce(buffer.get(), op); });
}

void Communicator::scan(CustomReductionBuffer& buffer, QMX_MPI_User_function* function) {
    userReduction(function, [&](int op) { _scan(buffer.get(), op); });
}

Communicator::CustomReductionBuffer::CustomReductionBuffer(void* data, std::uint64_t recordBytes,
                                                           int count)
    : _buffer{data, count, allocateContiguous(recordBytes, count),
              static_cast<unsigned int>(recordBytes)} {}

Communicator::CustomReductionBuffer::~CustomReductionBuffer() {
    QMX_MPI_Type_free(&_buffer.type);
}

int Communicator::CustomReductionBuffer::allocateContiguous(std::uint64_t bytes, int count) {
    TOLM_ASSERT(count >= 0, "Negative record count in a reduction buffer");
    int type = MpiCore::DerivedDatatype::defineMpiContiguousType(MessageLimits::toInt(bytes),
                                                                 QMX_MPI_BYTE);
    MpiCore::DerivedDatatype::commitMpiType(bytes, type);
    return type;
}

}  // namespace tolm
