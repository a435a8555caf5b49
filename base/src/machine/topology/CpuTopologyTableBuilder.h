#pragma once
#include <hwloc.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tolm {

// An hwloc object and the system's number for it: its position in the list that collected it.
struct HwlocObj {
    hwloc_obj_t obj;
    unsigned index;
};

// A socket, NUMA node or core with the objects of one type nested in it; each nested entry's
// `index` is that object's number in the flat list of its type.
struct HwlocContainer {
    HwlocObj self;
    std::vector<HwlocObj> objs;
};

// Collects the objects of an hwloc tree into the index tables of CpuTopology and checks them.
// Oddities of the tree are warnings to the platform log, never failures.
class CpuTopologyTableBuilder {
  public:
    // Logs `message` as a warning of the topology extraction.
    static void warn(const std::string& message);

    // Every object of `type`, in depth-first order from the root; empty without a topology.
    static std::vector<HwlocObj> getAllObjectsOfType(hwloc_topology_t topology,
                                                     hwloc_obj_type_t type);
    // Every NUMA node once, in depth-first order.
    static std::vector<HwlocObj> getAllUniqueNumaNodes(hwloc_topology_t topology);
    // The normal objects that the NUMA nodes hang from (past memory-side caches); a node
    // without one stands for itself, with a warning.
    static std::vector<hwloc_obj_t> getParents(const std::vector<HwlocObj>& numaNodes);

    // Each container with the members of `allTypeObjs` found below the container's root
    // object (`roots[i]`, or the container itself when `roots` is empty). InternalError
    // "Index out of range." when `roots` has fewer entries than `containers`.
    static std::vector<HwlocContainer> nest(const std::vector<HwlocObj>& containers,
                                            const std::vector<hwloc_obj_t>& roots,
                                            const std::vector<HwlocObj>& allTypeObjs);

    // Numbers run 0, 1, 2, ...; for containers, so do their members taken in order, and no
    // container is empty. The list must not be empty.
    static bool isOrdered(const std::vector<HwlocObj>& list);
    static bool isOrdered(const std::vector<HwlocContainer>& list);

    // For each of `size` members, the number of its container; a member in no container gets
    // an entry that `isValidMapping` rejects.
    static std::vector<unsigned> buildMapping(const std::vector<HwlocContainer>& containers,
                                              std::size_t size);
    static bool isValidMapping(const std::vector<unsigned>& mapping, std::size_t containerCount);
};

}  // namespace tolm
