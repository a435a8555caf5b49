#pragma once
#include <string>
#include <vector>

namespace tolm {

class AffinityMask;
class CpuTopology;

// Decimal digits that the numbers of each level are zero-padded to when printed.
struct CpuTopologyPrintWidths {
    unsigned lpu = 2;
    unsigned physicalCore = 2;
    unsigned numaNode = 2;
    unsigned socket = 2;
};

// The text forms of a CpuTopology and of masks in its terms.
class CpuTopologyPrinter {
  public:
    CpuTopologyPrinter(const CpuTopology& topology, const CpuTopologyPrintWidths& widths);

    std::string print(bool sockets, bool numaNodes, bool physicalCores, bool summary,
                      unsigned indent, unsigned maxItems) const;
    std::string printAffinityMask(const AffinityMask& mask, unsigned maxItems) const;

  private:
    using MaskOf = AffinityMask (CpuTopology::*)(unsigned) const;

    // "[" LPUs "]": the LPUs of one core joined by "+", cores apart by " ", and the middle
    // left out as " ..." when there are more than `maxItems` LPUs.
    std::string lpuList(const std::vector<unsigned>& lpus, unsigned maxItems) const;
    std::string summaryLines(const std::string& margin) const;
    // The members of one level that `rest` covers completely, as runs like "S00-S01"; their
    // LPUs are taken out of `rest`.
    std::vector<std::string> coveredRuns(const std::string& prefix, unsigned count, unsigned width,
                                         MaskOf maskOf, AffinityMask& rest) const;

    const CpuTopology& _topology;
    CpuTopologyPrintWidths _widths;
};

}  // namespace tolm
