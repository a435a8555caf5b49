// Collectives of strings and records, built on the vector forms, and the count and
// displacement arithmetic those forms share.
#include <algorithm>

#include "machine/comm/Communicator.h"
#include "machine/comm/MpiCore.h"
#include "neo/InternalError.h"

namespace tolm {

void Communicator::allGather(const std::set<std::string>& mine, std::set<std::string>& all) {
    std::vector<std::uint64_t> lengths;
    std::string joined;
    for (const auto& text : mine) {
        lengths.push_back(text.size());
        joined += text;
    }
    std::vector<unsigned int> entries, characters;
    allGather(MessageLimits::toUnsigned(lengths.size()), entries);
    allGather(MessageLimits::toUnsigned(joined.size()), characters);

    std::uint64_t totalEntries = 0, totalCharacters = 0;
    for (unsigned int rank = 0; rank < size(); ++rank) {
        totalEntries += entries[rank];
        totalCharacters += characters[rank];
    }
    std::vector<std::uint64_t> allLengths(totalEntries);
    std::string allText(totalCharacters, '\0');
    allGatherVector(lengths.data(), entries[myRank()], allLengths.data(), entries, {});
    allGatherVector(joined.data(), characters[myRank()], allText.data(), characters, {});

    std::uint64_t offset = 0;
    for (const std::uint64_t length : allLengths) {
        all.insert(allText.substr(offset, length));
        offset += length;
    }
}

void Communicator::gather(const std::string& mine, std::vector<std::string>& all,
                          unsigned int root) {
    // Only the root needs the lengths, and only non-empty texts travel: gathering texts that
    // are mostly empty (the slaves' errors after a command) costs one small gather.
    recordChannel();
    std::vector<unsigned int> lengths;
    gather(MessageLimits::toUnsigned(mine.size()), lengths, root);
    all.clear();
    if (myRank() != root) {
        if (!mine.empty())
            sendInPieces(mine, root);
        return;
    }
    all.resize(size());
    for (unsigned int rank = 0; rank < size(); ++rank) {
        if (rank == root)
            all[rank] = mine;
        else if (lengths[rank] != 0)
            recvInPieces(all[rank], lengths[rank], rank);
    }
}

Communicator& Communicator::recordChannel() {
    // Created on the first collective that needs it, so every rank duplicates together.
    if (!_recordChannel)
        _recordChannel = duplicate();
    return *_recordChannel;
}

void Communicator::sendInPieces(const std::string& text, unsigned int dest) {
    const std::uint64_t piece = std::max<std::uint64_t>(1, _maxBufferSize);
    for (std::uint64_t offset = 0; offset < text.size(); offset += piece)
        recordChannel().send(text.data() + offset,
                             std::min<std::uint64_t>(piece, text.size() - offset), dest);
}

void Communicator::recvInPieces(std::string& text, std::uint64_t length, unsigned int source) {
    text.resize(length);
    const std::uint64_t piece = std::max<std::uint64_t>(1, _maxBufferSize);
    for (std::uint64_t offset = 0; offset < length; offset += piece)
        recordChannel().recv(text.data() + offset, std::min<std::uint64_t>(piece, length - offset),
                             source);
}

void Communicator::gather(const Properties& mine, std::vector<Properties>& all) {
    std::vector<std::string> texts;
    gather(mine.toString(), texts, masterRank());
    all.clear();
    for (const auto& text : texts)
        all.emplace_back(text);
}

void Communicator::getDefaultDisplacements(const UnsignedCounts& counts,
                                           UnsignedCounts& displacements) const {
    displacements.assign(size(), 0);
    for (unsigned int rank = 1; rank < size() && rank <= counts.size(); ++rank) {
        displacements[rank] = displacements[rank - 1] + counts[rank - 1];
    }
}

void Communicator::addStrideLength(const UnsignedCounts& counts, UnsignedCounts& out,
                                   unsigned int stride) const {
    if (stride == 1)
        return;
    out.resize(size());
    for (unsigned int rank = 0; rank < size(); ++rank)
        out[rank] = counts[rank] * stride;
}

void Communicator::addStrideLength(const UnsignedCounts& counts,
                                   const UnsignedCounts& displacements, UnsignedCounts& outCounts,
                                   UnsignedCounts& outDisplacements, unsigned int stride) const {
    if (stride == 1)
        return;
    addStrideLength(counts, outCounts, stride);
    addStrideLength(displacements, outDisplacements, stride);
}

void Communicator::subtractStrideLength(const UnsignedCounts& counts, UnsignedCounts& out,
                                        unsigned int stride) const {
    if (stride == 1)
        return;
    out.resize(size());
    for (unsigned int rank = 0; rank < size(); ++rank)
        out[rank] = counts[rank] / stride;
}

}  // namespace tolm
