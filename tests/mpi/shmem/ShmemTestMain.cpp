// The shared-memory communicators are built as a server process does at start-up.
#include "support/MachineTestRun.h"

int main(int argc, char** argv) {
    return tolm::mpitest::runMachineTests(argc, argv, {},
                                          [] { tolm::Machine::buildShmemCommunicators(); });
}
