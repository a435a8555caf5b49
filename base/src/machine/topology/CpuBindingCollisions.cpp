#include "machine/topology/CpuBindingCollisions.h"

namespace tolm {

bool CpuBindingCollisions::isPinned(const AffinityMask& mask, const AffinityMask& available) {
    return !mask.empty() && !available.isIncludedIn(mask);
}

std::vector<CpuBindingCollisions::Collision> CpuBindingCollisions::find(
    const std::vector<AffinityMask>& masks, const AffinityMask& available) {
    std::vector<Collision> collisions;
    for (unsigned first = 0; first < masks.size(); ++first) {
        if (!isPinned(masks[first], available))
            continue;
        for (unsigned second = first + 1; second < masks.size(); ++second) {
            if (isPinned(masks[second], available) && masks[first].intersectsWith(masks[second]))
                collisions.push_back({first, second, masks[first] & masks[second]});
        }
    }
    return collisions;
}

AffinityMask CpuBindingCollisions::pinnedLpus(const std::vector<AffinityMask>& masks,
                                              const AffinityMask& available) {
    AffinityMask pinned;
    for (const AffinityMask& mask : masks) {
        if (isPinned(mask, available))
            pinned |= mask;
    }
    return pinned;
}

}  // namespace tolm
