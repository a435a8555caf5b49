/* The least an MPI program does: start MPI and end it. Its start-up time is what a server of
 * the machine layer is set beside (startup-times.sh). */
#include <mpi.h>

int main(int argc, char** argv) {
    MPI_Init(&argc, &argv);
    MPI_Finalize();
    return 0;
}
