#include "machine/comm/ShmemGroups.h"

#include <algorithm>

#include "neo/InternalError.h"

namespace tolm {

bool ShmemGroups::anySpansSeveral(const UnitLists& units) {
    return std::any_of(units.begin(), units.end(),
                       [](const std::vector<unsigned>& list) { return list.size() > 1; });
}

std::vector<unsigned> ShmemGroups::membersOf(unsigned hostRank, const UnitLists& units,
                                             unsigned numberOfUnits) {
    TOLM_ASSERT(hostRank < units.size(), "Host rank out of range in ShmemGroups");
    const auto hostSize = static_cast<unsigned>(units.size());
    if (anySpansSeveral(units))
        return evenBlock(hostRank, hostSize, numberOfUnits);
    std::vector<unsigned> members;
    for (unsigned rank = 0; rank < hostSize; ++rank) {
        if (units[rank] == units[hostRank])
            members.push_back(rank);
    }
    return members;
}

std::vector<unsigned> ShmemGroups::evenBlock(unsigned hostRank, unsigned hostSize,
                                             unsigned blocks) {
    TOLM_ASSERT(hostRank < hostSize, "Host rank out of range in ShmemGroups");
    blocks = std::clamp(blocks, 1u, hostSize);
    const unsigned base = hostSize / blocks;
    const unsigned larger = hostSize % blocks;  // blocks of base + 1 processes, first
    const unsigned inLarger = larger * (base + 1);
    const unsigned block =
        hostRank < inLarger ? hostRank / (base + 1) : larger + (hostRank - inLarger) / base;
    const unsigned first = block < larger ? block * (base + 1) : inLarger + (block - larger) * base;
    const unsigned size = block < larger ? base + 1 : base;
    std::vector<unsigned> members(size);
    for (unsigned i = 0; i < size; ++i)
        members[i] = first + i;
    return members;
}

}  // namespace tolm
