// CpuTopology from arbitrary XML: damaged descriptions degrade the topology (with warnings),
// they never crash it; whatever was built answers its queries within its own counts.
#include <cstddef>
#include <cstdint>
#include <string>

#include "machine/topology/CpuTopology.h"
#include "neo/Error.h"
#include "platform/Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = (tolm::OS::Log::setSink([](auto, const auto&) {}), true);
    (void)quiet;
    const std::string xml(reinterpret_cast<const char*>(data), size);
    if (xml.empty()) return 0;  // empty text means "discover this machine"
    try {
        const tolm::CpuTopology topology(xml);
        for (unsigned int lpu = 0; lpu < topology.getNumberLpus(); ++lpu) {
            (void)topology.getLpuMask(lpu);
        }
        (void)topology.toString();
    } catch (const tolm::Error&) {
    }
    return 0;
}
