#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tolm {

// Option text -> number of argv entries it occupies, for every option the machine took.
using ArgumentMap = std::map<std::string, unsigned>;

// What the common options set for the whole run. CommonArgvParser fills it from argv on every
// process alike, so the settings agree across the job without communication; Machine owns it
// and applies what needs applying once the parse is done.
struct MachineSettings {
    enum CpuBindingPolicy { Bandwidth = 0, Latency = 1, LeastLoad = 2 };
    // Bits of threadBindingAttributes.
    enum ThreadBindingAttribute : std::uint32_t {
        ThreadBindingOff = 1u,
        ThreadBindingVerbose = 2u
    };

    bool threaded = true;
    bool useInternalBinding = true;
    CpuBindingPolicy cpuBindingPolicy = Bandwidth;
    bool cpuBindingContentionTest = true;
    std::uint32_t threadBindingAttributes = 0;
    std::uint32_t ioVerbosity = 0;
    bool printPids = false;
    // "-yieldwait": blocking waits yield the processor even where the host is not crowded.
    bool yieldingWaits = false;
    bool parallelIo = false;
    bool devErrorChecking = true;
    bool deleteOnExit = false;
    bool analyticsOff = false;
    std::optional<std::wstring> temporaryDirectory;
    std::wstring jobManagerUrl;
    int taskId = 0;
    // "-slavelogs": the directory of the slaves' log files, created by the parse.
    std::optional<std::wstring> slaveLogDirectory;
    // "-memorymonitor": the sampling period in seconds, as given.
    std::optional<float> memoryMonitorPeriod;
    // "-xmpidriver", "-xmpiversion": the names reported for the MPI library in a parallel run.
    std::optional<std::string> mpiDistributionName;
    std::optional<std::string> mpiVersionName;

    // The "-cpubind" word of the binding in force: "disable", "latency", "leastload" or
    // "bandwidth".
    const char* bindingPolicyName() const {
        if (!useInternalBinding)
            return "disable";
        switch (cpuBindingPolicy) {
            case Latency:
                return "latency";
            case LeastLoad:
                return "leastload";
            default:
                return "bandwidth";
        }
    }
};

}  // namespace tolm
