// Collectives of strings and records, built on the vector forms, and the count and
// displacement arithmetic those forms share.
#include "machine/Communicator.h"
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
    std::vector<unsigned int> lengths;
    allGather(MessageLimits::toUnsigned(mine.size()), lengths);
    std::uint64_t total = 0;
    for (const unsigned int length : lengths) total += length;
    const bool isRoot = myRank() == root;
    std::string allText(isRoot ? total : 0, '\0');
    gatherVector(mine.data(), lengths[myRank()], allText.data(), lengths, {}, root);
    all.clear();
    if (!isRoot) return;
    std::uint64_t offset = 0;
    for (const unsigned int length : lengths) {
        all.push_back(allText.substr(offset, length));
        offset += length;
    }
}

void Communicator::gather(const Properties& mine, std::vector<Properties>& all) {
    std::vector<std::string> texts;
    gather(mine.toString(), texts, masterRank());
    all.clear();
    for (const auto& text : texts) all.emplace_back(text);
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
