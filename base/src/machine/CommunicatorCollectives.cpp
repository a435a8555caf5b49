#include "machine/CommunicatorCall.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

constexpr int collectivePeer = -1;

// The first `count` elements of `buffer`, from element `offset` on.
BufferBase<unsigned int> piece(const BufferBase<unsigned int>& buffer, std::uint64_t offset,
                               unsigned int count) {
    return {static_cast<char*>(buffer.data) + offset * buffer.elementSize, count, buffer.type,
            buffer.elementSize};
}

}  // namespace

void Communicator::broadcastBuffer(const BufferBase<unsigned int>& buffer, unsigned int root) {
    if (buffer.size == 0)
        return;
    if (exceedsSizeLimits(buffer.size, buffer.elementSize)) {
        if (buffer.size == 1)
            MessageLimits::throwOversizedMessage(buffer.size, buffer.bytes());
        const unsigned int first = buffer.size / 2;
        broadcastBuffer(piece(buffer, 0, first), root);
        broadcastBuffer(piece(buffer, first, buffer.size - first), root);
        return;
    }
    communicate("Communicator::Broadcast", buffer.bytes(), collectivePeer, [&] {
        return QMX_MPI_Bcast(buffer.data, static_cast<int>(buffer.size), buffer.type,
                             static_cast<int>(root), _handle);
    });
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

}  // namespace tolm
