#pragma once
#include <vector>

#include "machine/topology/AffinityMask.h"

namespace tolm {

// Which processes of one host get in each other's way. A process is pinned when it may not
// run on every LPU available to the host's processes (a launcher, a user or this machine
// bound it); an unpinned process can always be moved elsewhere by the operating system, so
// only pinned processes can collide:
//   collision   two processes of this job, both pinned, whose LPUs overlap;
//   contention  a pinned process of this job on LPUs that a pinned process of another job
//               (another server on the same host) holds.
class CpuBindingCollisions {
  public:
    // Two processes, by their position in the list given to `find`, and the LPUs they share.
    struct Collision {
        unsigned first;
        unsigned second;
        AffinityMask shared;
    };

    CpuBindingCollisions() = delete;

    static bool isPinned(const AffinityMask& mask, const AffinityMask& available);
    // Every colliding pair of `masks` (one per process of the host), first by first process.
    static std::vector<Collision> find(const std::vector<AffinityMask>& masks,
                                       const AffinityMask& available);
    // The union of the pinned masks among `masks`.
    static AffinityMask pinnedLpus(const std::vector<AffinityMask>& masks,
                                   const AffinityMask& available);
};

}  // namespace tolm
