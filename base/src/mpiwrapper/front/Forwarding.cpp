// The exported QMX_MPI_ functions that only forward: each calls the live table's entry, which
// is the driver's function while it may serve the call and a refusal otherwise.
#include "mpiwrapper/front/WrapperState.h"

#define TOLM_QMX_FORWARD_MPI(ret, name, params, args) \
    ret QMX_MPI_##name params {                       \
        return tolm::mpiwrapper::liveMpi.name args;   \
    }
#define TOLM_QMX_FORWARD_MPIO(ret, name, params, args) \
    ret QMX_MPI_##name params {                        \
        return tolm::mpiwrapper::liveMpio.name args;   \
    }

QMX_MPI_ANYTIME_FUNCTIONS(TOLM_QMX_FORWARD_MPI)
QMX_MPI_RUNNING_FUNCTIONS(TOLM_QMX_FORWARD_MPI)
QMX_MPIO_FUNCTIONS(TOLM_QMX_FORWARD_MPIO)
