#include "support/MachineTestRun.h"

int main(int argc, char** argv) {
    return tolm::mpitest::runMachineTests(argc, argv);
}
