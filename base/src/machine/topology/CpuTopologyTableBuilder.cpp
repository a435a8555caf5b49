#include "machine/topology/CpuTopologyTableBuilder.h"

#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "neo/InternalError.h"
#include "platform/Log.h"

namespace tolm {
namespace {

constexpr unsigned NO_CONTAINER = std::numeric_limits<unsigned>::max();

// Depth-first walk below `root` (itself included): objects of `type` are taken and not
// descended into; other objects are descended into, memory children first.
std::vector<hwloc_obj_t> collect(hwloc_obj_t root, hwloc_obj_type_t type) {
    std::vector<hwloc_obj_t> found;
    std::vector<hwloc_obj_t> work{root};
    while (!work.empty()) {
        const hwloc_obj_t obj = work.back();
        work.pop_back();
        if (!obj) {
            CpuTopologyTableBuilder::warn(
                "Unexpected uninitialized object while parsing hwloc topology.");
            continue;
        }
        if (obj->type == type) {
            found.push_back(obj);
            continue;
        }
        for (unsigned i = obj->arity; i-- > 0;)
            work.push_back(obj->children[i]);
        std::vector<hwloc_obj_t> memory;
        for (hwloc_obj_t child = obj->memory_first_child; child; child = child->next_sibling)
            memory.push_back(child);
        work.insert(work.end(), memory.rbegin(), memory.rend());
    }
    return found;
}

// `list[index]`; the lists a caller pairs up by position must agree in length.
template <typename T>
const T& elementAt(const std::vector<T>& list, std::size_t index) {
    TOLM_ASSERT(index < list.size(), "Index out of range.");
    return list[index];
}

std::vector<HwlocObj> numbered(const std::vector<hwloc_obj_t>& objects) {
    std::vector<HwlocObj> list;
    list.reserve(objects.size());
    for (hwloc_obj_t obj : objects)
        list.push_back({obj, static_cast<unsigned>(list.size())});
    return list;
}

// The members of `allTypeObjs` found below `root`, with their numbers.
std::vector<HwlocObj> nestedBelow(hwloc_obj_t root, hwloc_obj_type_t type,
                                  const std::unordered_map<hwloc_obj_t, unsigned>& numbers) {
    std::vector<HwlocObj> nested;
    for (hwloc_obj_t obj : collect(root, type)) {
        const auto number = numbers.find(obj);
        if (number == numbers.end()) {
            CpuTopologyTableBuilder::warn(
                "Unexpected, not yet seen object found while parsing hwloc topology.");
            continue;
        }
        nested.push_back({obj, number->second});
    }
    return nested;
}

}  // namespace

void CpuTopologyTableBuilder::warn(const std::string& message) {
    OS::Log::warning("CpuTopology::Impl::extractTopology: " + message);
}

std::vector<HwlocObj> CpuTopologyTableBuilder::getAllObjectsOfType(hwloc_topology_t topology,
                                                                   hwloc_obj_type_t type) {
    if (!topology) {
        warn("Unexpected uninitialized topology.");
        return {};
    }
    return numbered(collect(hwloc_get_root_obj(topology), type));
}

std::vector<HwlocObj> CpuTopologyTableBuilder::getAllUniqueNumaNodes(hwloc_topology_t topology) {
    std::vector<hwloc_obj_t> unique;
    std::unordered_set<hwloc_obj_t> seen;
    for (const HwlocObj& node : getAllObjectsOfType(topology, HWLOC_OBJ_NUMANODE))
        if (seen.insert(node.obj).second)
            unique.push_back(node.obj);
    return numbered(unique);
}

std::vector<hwloc_obj_t> CpuTopologyTableBuilder::getParents(
    const std::vector<HwlocObj>& numaNodes) {
    std::vector<hwloc_obj_t> parents;
    bool missing = false;
    for (const HwlocObj& node : numaNodes) {
        hwloc_obj_t parent = node.obj->parent;
        while (parent && hwloc_obj_type_is_memory(parent->type))
            parent = parent->parent;
        missing = missing || !parent;
        parents.push_back(parent ? parent : node.obj);
    }
    if (missing)
        warn("There was an error when getting the parent objects of NUMA nodes.");
    return parents;
}

std::vector<HwlocContainer> CpuTopologyTableBuilder::nest(
    const std::vector<HwlocObj>& containers, const std::vector<hwloc_obj_t>& roots,
    const std::vector<HwlocObj>& allTypeObjs) {
    TOLM_ASSERT(!allTypeObjs.empty(), "Unexpected, empty list");
    const hwloc_obj_type_t type = allTypeObjs.front().obj->type;
    std::unordered_map<hwloc_obj_t, unsigned> numbers;
    for (const HwlocObj& obj : allTypeObjs) {
        TOLM_ASSERT(obj.obj->type == type,
                    "All objects in 'allTypeObjs' must be of the same type.");
        numbers.emplace(obj.obj, obj.index);
    }
    std::vector<HwlocContainer> nested;
    nested.reserve(containers.size());
    for (std::size_t i = 0; i < containers.size(); ++i) {
        const hwloc_obj_t root = roots.empty() ? containers[i].obj : elementAt(roots, i);
        nested.push_back({containers[i], nestedBelow(root, type, numbers)});
    }
    return nested;
}

bool CpuTopologyTableBuilder::isOrdered(const std::vector<HwlocObj>& list) {
    TOLM_ASSERT(!list.empty(), "Unexpected empty list of objects.");
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i].index != i)
            return false;
    return true;
}

bool CpuTopologyTableBuilder::isOrdered(const std::vector<HwlocContainer>& list) {
    TOLM_ASSERT(!list.empty(), "Unexpected empty list of objects.");
    unsigned next = 0;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i].self.index != i || list[i].objs.empty())
            return false;
        for (const HwlocObj& obj : list[i].objs)
            if (obj.index != next++)
                return false;
    }
    return true;
}

std::vector<unsigned> CpuTopologyTableBuilder::buildMapping(
    const std::vector<HwlocContainer>& containers, std::size_t size) {
    std::vector<unsigned> mapping(size, NO_CONTAINER);
    for (const HwlocContainer& container : containers) {
        for (const HwlocObj& obj : container.objs) {
            TOLM_ASSERT(obj.index < size, "Unexpected logical index while iterating object list.");
            mapping[obj.index] = container.self.index;
        }
    }
    return mapping;
}

bool CpuTopologyTableBuilder::isValidMapping(const std::vector<unsigned>& mapping,
                                             std::size_t containerCount) {
    for (unsigned container : mapping)
        if (container >= containerCount)
            return false;
    return true;
}

}  // namespace tolm
