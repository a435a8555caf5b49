/* qmx_mpi.h is a C header too: compiled here as C, with its layout checks. */
#include "mpiwrapper/qmx_mpi.h"

int qmxCStatusSize(void);

int qmxCStatusSize(void) {
    QMX_MPI_Status_struct status = {QMX_MPI_ANY_SOURCE, QMX_MPI_ANY_TAG, QMX_MPI_SUCCESS, 0, 0};
    return (int)sizeof status;
}
