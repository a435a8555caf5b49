#pragma once
#include <memory>
#include <string>
#include <vector>

#include "machine/topology/AffinityMask.h"

struct hwloc_topology;

namespace tolm {

// The processors of this host: its logical processing units (LPUs, hardware threads),
// physical cores, NUMA nodes and sockets, each numbered densely from 0 in hwloc's traversal
// order, and which of them contain which. Built once per process, from hwloc's view of this
// machine or from an hwloc XML text that another process of the host exported (`toString`);
// either way the topology stands for this machine: binding through it acts on this machine,
// and the processors this process may use are this process's own (`getAllowedMask`).
//
// Every table is validated on construction. A table that fails is dropped with a warning to
// the platform log, and its level falls back to a flat machine: one NUMA node, one socket, each
// LPU its own core. When hwloc fails altogether there is no topology at all: one LPU, every
// mask empty. Ask `reliable...InformationAvailable()` before relying on a level.
//
// Errors: construction never fails. An index out of range is an InternalError naming the
// failed condition (e.g. "lpu < getNumberLpus()").
//
// Read-only after construction; queries may come from any thread.
class CpuTopology {
  public:
    // This machine, as hwloc discovers it (all processors, also those this process may not use).
    CpuTopology();
    // The machine described by `xml` (an hwloc XML export), taken as this machine; an empty
    // text discovers this machine.
    explicit CpuTopology(const std::string& xml);
    CpuTopology(CpuTopology&& other) noexcept;
    CpuTopology& operator=(CpuTopology&& other) noexcept;
    CpuTopology(const CpuTopology&) = delete;
    CpuTopology& operator=(const CpuTopology&) = delete;
    ~CpuTopology();

    // The topology as hwloc XML; "" without a topology. CpuTopology(toString()) is equal.
    std::string toString() const;

    // Counts; never 0.
    unsigned getNumberLpus() const;
    unsigned getNumberPhysicalCores() const;
    unsigned getNumberNumaNodes() const;
    unsigned getNumberSockets() const;
    unsigned getNumberLpus(unsigned physicalCore) const;
    unsigned getNumberLpusForNumaNode(unsigned numaNode) const;
    unsigned getNumberPhysicalCoresForNumaNode(unsigned numaNode) const;
    unsigned getNumberLpusForSocket(unsigned socket) const;
    unsigned getNumberPhysicalCoresForSocket(unsigned socket) const;

    // Members of one container, in increasing number.
    std::vector<unsigned> getLpusForPhysicalCore(unsigned physicalCore) const;
    std::vector<unsigned> getLpusForNumaNode(unsigned numaNode) const;
    std::vector<unsigned> getLpusForSocket(unsigned socket) const;
    std::vector<unsigned> getPhysicalCoresForNumaNode(unsigned numaNode) const;
    std::vector<unsigned> getPhysicalCoresForSocket(unsigned socket) const;

    // The container of one member.
    unsigned getPhysicalCoreForLpu(unsigned lpu) const;
    unsigned getNumaNodeForLpu(unsigned lpu) const;
    unsigned getNumaNodeForPhysicalCore(unsigned physicalCore) const;
    unsigned getSocketForLpu(unsigned lpu) const;
    unsigned getSocketForPhysicalCore(unsigned physicalCore) const;

    // Operating-system processor sets. Without LPU information the only LPU, 0, has an empty
    // mask: test reliableLpuInformationAvailable() before binding to one.
    AffinityMask getLpuMask(unsigned lpu) const;
    AffinityMask getLpuMask(const std::vector<unsigned>& lpus) const;
    AffinityMask getPhysicalCoreMask(unsigned physicalCore) const;
    AffinityMask getPhysicalCoreMask(const std::vector<unsigned>& physicalCores) const;
    AffinityMask getNumaMask(unsigned numaNode) const;
    AffinityMask getNumaMask(const std::vector<unsigned>& numaNodes) const;
    AffinityMask getSocketMask(unsigned socket) const;
    AffinityMask getSocketMask(const std::vector<unsigned>& sockets) const;
    // Every processor of the machine; empty without a topology.
    AffinityMask getTopologyMask() const;
    // The processors this process may use (its cgroup/cpuset on this machine, also when the
    // topology came from XML); empty without a topology.
    AffinityMask getAllowedMask() const;
    // `mask` less the processors this process may not use; empty without a topology.
    AffinityMask restrictToAvailableResources(AffinityMask&& mask) const;

    // The members whose processors intersect `mask`, in increasing number.
    std::vector<unsigned> getLpusFromMask(const AffinityMask& mask) const;
    std::vector<unsigned> getPhysicalCoresFromMask(const AffinityMask& mask) const;
    std::vector<unsigned> getNumaNodesFromMask(const AffinityMask& mask) const;
    std::vector<unsigned> getSocketsFromMask(const AffinityMask& mask) const;

    bool reliableLpuInformationAvailable() const;
    bool reliablePhysicalCoreInformationAvailable() const;
    bool reliableNumaNodeInformationAvailable() const;
    bool reliableSocketInformationAvailable() const;
    bool usesSMT() const;
    // Every core, NUMA node and socket holds as many members as the first one of its level.
    bool isSymmetric() const;
    // Socket i and NUMA node i hold the same LPUs, for every i.
    bool socketsEqualToNumaNodes() const;

    // Up to `count` of `lpus`, spread round-robin over NUMA nodes (when asked and known), then
    // over physical cores (one hardware thread per core before a core's next one); sorted.
    std::vector<unsigned> getLpuSubset(const std::vector<unsigned>& lpus, unsigned count,
                                       bool spreadOverNumaNodes,
                                       bool spreadOverPhysicalCores) const;

    // A text of the chosen levels (one line each, indented), LPU lists shortened to about
    // `maxItems` LPUs.
    std::string print(bool sockets, bool numaNodes, bool physicalCores, bool summary,
                      unsigned indent, unsigned maxItems) const;
    // `mask` in one line: the sockets, NUMA nodes, cores and LPUs it covers.
    std::string printAffinityMask(const AffinityMask& mask, unsigned maxItems) const;

  private:
    friend class Affinity;
    class Impl;

    // The hwloc topology that binding calls use; null without a topology.
    hwloc_topology* getHwlocTopology() const;
    // A mask holding a copy of an hwloc object's cpuset.
    static AffinityMask wrapCpuset(const hwloc_bitmap_s* cpuset);

    bool computeSymmetry() const;
    bool computeSocketsEqualToNumaNodes() const;

    std::unique_ptr<Impl> _impl;
};

}  // namespace tolm
