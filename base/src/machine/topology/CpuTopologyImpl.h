#pragma once
#include <hwloc.h>

#include <string>
#include <vector>

#include "machine/topology/CpuTopology.h"
#include "machine/topology/CpuTopologyPrinter.h"
#include "machine/topology/CpuTopologyTableBuilder.h"

namespace tolm {

// What a CpuTopology holds: the loaded hwloc topology (null when hwloc failed or saw no LPU)
// and the validated index tables, and the look-ups in them. An empty table means that its
// level falls back to a flat machine; the look-ups give the fallback answers.
class CpuTopology::Impl {
  public:
    explicit Impl(const std::string& xml);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    unsigned getNumberLpus() const;
    unsigned getNumberPhysicalCores() const;
    unsigned getNumberNumaNodes() const;
    unsigned getNumberSockets() const;
    unsigned getNumberLpus(unsigned physicalCore) const;

    std::vector<unsigned> getLpusForPhysicalCore(unsigned physicalCore) const;
    std::vector<unsigned> getLpusForNumaNode(unsigned numaNode) const;
    std::vector<unsigned> getLpusForSocket(unsigned socket) const;
    std::vector<unsigned> getPhysicalCoresForNumaNode(unsigned numaNode) const;
    std::vector<unsigned> getPhysicalCoresForSocket(unsigned socket) const;

    unsigned getPhysicalCoreForLpu(unsigned lpu) const;
    unsigned getNumaNodeForLpu(unsigned lpu) const;
    unsigned getNumaNodeForPhysicalCore(unsigned physicalCore) const;
    unsigned getSocketForLpu(unsigned lpu) const;
    unsigned getSocketForPhysicalCore(unsigned physicalCore) const;

    AffinityMask getLpuMask(unsigned lpu) const;
    AffinityMask getPhysicalCoreMask(unsigned physicalCore) const;
    AffinityMask getNumaMask(unsigned numaNode) const;
    AffinityMask getSocketMask(unsigned socket) const;

    std::vector<unsigned> getLpusFromMask(const AffinityMask& mask) const;
    std::vector<unsigned> getPhysicalCoresFromMask(const AffinityMask& mask) const;
    std::vector<unsigned> getNumaNodesFromMask(const AffinityMask& mask) const;
    std::vector<unsigned> getSocketsFromMask(const AffinityMask& mask) const;

    hwloc_topology_t _topology = nullptr;
    bool _symmetric = true;
    bool _socketsEqualToNumaNodes = true;

    std::vector<HwlocObj> _lpus;
    std::vector<HwlocContainer> _physicalCores;
    std::vector<HwlocContainer> _numaNodeLpus;
    std::vector<HwlocContainer> _numaNodePhysicalCores;
    std::vector<HwlocContainer> _socketLpus;
    std::vector<HwlocContainer> _socketPhysicalCores;

    std::vector<unsigned> _lpuPhysicalCore;
    std::vector<unsigned> _lpuNumaNode;
    std::vector<unsigned> _physicalCoreNumaNode;
    std::vector<unsigned> _lpuSocket;
    std::vector<unsigned> _physicalCoreSocket;

    CpuTopologyPrintWidths _printWidths;

  private:
    // The tables of one level that contains LPUs and cores (NUMA nodes or sockets), and the
    // warnings for each way it can fail.
    struct ContainerLevel {
        std::vector<HwlocContainer>& lpus;
        std::vector<HwlocContainer>& physicalCores;
        std::vector<unsigned>& lpuMapping;
        std::vector<unsigned>& physicalCoreMapping;
        const char* lpuOrderingWarning;
        const char* lpuMappingWarning;
        const char* physicalCoreOrderingWarning;
        const char* physicalCoreMappingWarning;
    };

    // The distinct physical cores of `lpus`, in increasing number.
    std::vector<unsigned> physicalCoresOf(const std::vector<unsigned>& lpus) const;
    AffinityMask unionOfLpuMasks(const std::vector<unsigned>& lpus) const;
    // The containers of `list` whose own processor set intersects `mask`.
    static std::vector<unsigned> intersecting(const std::vector<HwlocContainer>& list,
                                              const AffinityMask& mask);

    bool load(const std::string& xml);
    static bool acceptXml(const std::string& xml);
    void destroyTopology();
    void extractTopology();
    void extractPhysicalCores();
    void extractNumaNodes();
    void extractSockets();
    void extractContainerLevel(const std::vector<HwlocObj>& objects,
                               const std::vector<hwloc_obj_t>& roots, const ContainerLevel& level);
    void extractNestedPhysicalCores(const std::vector<HwlocObj>& objects,
                                    const std::vector<hwloc_obj_t>& roots,
                                    const ContainerLevel& level);
};

}  // namespace tolm
