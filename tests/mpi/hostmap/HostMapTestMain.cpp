// Notes where the launcher let this process run before the machine (and so the host map) starts.
#include "hostmap/HostMapTesting.h"
#include "support/MachineTestRun.h"

int main(int argc, char** argv) {
    return tolm::mpitest::runMachineTests(argc, argv, tolm::hostmaptest::recordStartUpAffinity);
}
