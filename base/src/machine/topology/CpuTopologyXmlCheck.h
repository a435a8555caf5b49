#pragma once
#include <string>

namespace tolm {

// Reads an hwloc XML topology before hwloc does, for the defects that crash hwloc's loader, or
// have it exhaust memory, instead of failing it (hwloc 2.9 trusts its input):
//  - a set attribute (cpuset, nodeset, their complete_ and allowed_ forms) that is not a set in
//    hwloc's own notation ("0x0000000f,0x00000001", optionally led by "0xf...f"): hwloc's set
//    reader overruns its buffer on some other texts, the empty one among them;
//  - an object with a cpuset but no complete_cpuset, or the other way round, or a cpuset that
//    is not part of its complete_cpuset; likewise for nodesets (hwloc uses them unchecked);
//  - a PU or NUMA node without a small os_index (hwloc allocates a bitmap up to that bit);
//  - a document type declaration without a system identifier (hwloc compares it unchecked);
//  - a format older than hwloc 2 (read by another path of hwloc that is no more careful; the
//    topologies come from hwloc 2 exports).
// It reads the text with libxml2, as hwloc does with its XML plugin (libhwloc-plugins), and
// takes only attribute values that are one plain text, which every hwloc reader sees alike.
class CpuTopologyXmlCheck {
  public:
    explicit CpuTopologyXmlCheck(const std::string& xml);

    // Whether libxml2 reads the text as XML; hwloc refuses text that it cannot read.
    bool wellFormed() const { return _wellFormed; }
    // The first defect found, as a sentence; empty when there is none.
    const std::string& defect() const { return _defect; }
    bool loadable() const { return _wellFormed && _defect.empty(); }

  private:
    bool _wellFormed = false;
    std::string _defect;
};

}  // namespace tolm
