// main() of one-process test executables that drive the wrapper's life cycle themselves: they
// get the "-mpi" option but load nothing and start nothing.
#include <gtest/gtest.h>

#include "support/MpiTestOptions.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    tolm::mpitest::takeDriverOption(argc, argv);
    return RUN_ALL_TESTS();
}
