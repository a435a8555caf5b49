#pragma once
#include <fstream>
#include <numeric>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "machine/topology/AffinityMask.h"
#include "machine/topology/CpuTopology.h"
#include "platform/Log.h"

namespace tolm {

// Lets GoogleTest print masks in failure messages.
inline void PrintTo(const AffinityMask& mask, std::ostream* out) {
    *out << mask.toHexString(0);
}

namespace test {

inline std::vector<unsigned> lpusOf(const AffinityMask& mask) {
    return {mask.begin(), mask.end()};
}

// first, first + 1, ..., last
inline std::vector<unsigned> numbers(unsigned first, unsigned last) {
    std::vector<unsigned> list(last - first + 1);
    std::iota(list.begin(), list.end(), first);
    return list;
}

inline AffinityMask maskOf(const std::vector<unsigned>& lpus) {
    AffinityMask mask;
    for (unsigned lpu : lpus)
        mask.set(lpu);
    return mask;
}

// The text of a topology file of tests/data.
inline std::string readFixture(const std::string& name) {
    std::ifstream in(std::string(TOLM_TOPOLOGY_DATA_DIR) + "/" + name);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in || text.str().empty())
        throw std::runtime_error("Cannot read fixture " + name);
    return text.str();
}

inline CpuTopology loadFixture(const std::string& name) {
    return CpuTopology(readFixture(name));
}

// The platform log's warnings while it lives, as the log received them.
class WarningCapture {
  public:
    WarningCapture()
        : _previous(OS::Log::setSink([this](OS::Log::Level level, const std::string& text) {
              if (level == OS::Log::Level::Warning)
                  _warnings.push_back(text);
          })) {}
    ~WarningCapture() { OS::Log::setSink(std::move(_previous)); }
    WarningCapture(const WarningCapture&) = delete;
    WarningCapture& operator=(const WarningCapture&) = delete;

    const std::vector<std::string>& warnings() const { return _warnings; }

  private:
    std::vector<std::string> _warnings;
    OS::Log::Sink _previous;
};

// A warning of the topology extraction as the platform log receives it.
inline std::string extractionWarning(const std::string& message) {
    return "CpuTopology::Impl::extractTopology: " + message;
}

// Every table of `topology` in one text, to compare topologies.
inline std::string describe(const CpuTopology& topology) {
    std::ostringstream text;
    text << topology.print(true, true, true, true, 0, 100000);
    for (unsigned lpu = 0; lpu < topology.getNumberLpus(); ++lpu) {
        text << "L" << lpu << " " << topology.getLpuMask(lpu).toHexString(0) << " C"
             << topology.getPhysicalCoreForLpu(lpu) << " N" << topology.getNumaNodeForLpu(lpu)
             << " S" << topology.getSocketForLpu(lpu) << "\n";
    }
    for (unsigned core = 0; core < topology.getNumberPhysicalCores(); ++core) {
        text << "C" << core << " " << topology.getPhysicalCoreMask(core).toHexString(0) << " N"
             << topology.getNumaNodeForPhysicalCore(core) << " S"
             << topology.getSocketForPhysicalCore(core) << "\n";
    }
    for (unsigned node = 0; node < topology.getNumberNumaNodes(); ++node) {
        text << "N" << node << " " << topology.getNumaMask(node).toHexString(0) << " cores "
             << topology.getNumberPhysicalCoresForNumaNode(node) << "\n";
    }
    for (unsigned socket = 0; socket < topology.getNumberSockets(); ++socket) {
        text << "S" << socket << " " << topology.getSocketMask(socket).toHexString(0) << " cores "
             << topology.getNumberPhysicalCoresForSocket(socket) << "\n";
    }
    text << "topology " << topology.getTopologyMask().toHexString(0) << " allowed "
         << topology.getAllowedMask().toHexString(0) << "\n";
    return text.str();
}

}  // namespace test
}  // namespace tolm
