// Creation of a request handle around an MPI call that starts an operation. The slot is
// reserved before the call, so that a failed allocation cannot strand a started operation
// without a handle; a failed call gives the slot back and the caller the null request.
#pragma once

#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"

namespace tolm::mpidriver {

// start(MPI_Request*) makes the MPI call and returns its native code. Handles it needs must be
// translated before, as a translation failure here would leave the slot reserved.
template <class Start>
int newRequest(int* request, Start&& start) {
    require(request != nullptr);
    auto& requests = handles.requests;
    const int handle = requests.reserve();
    MPI_Request native = MPI_REQUEST_NULL;
    const int rc = start(&native);
    if (rc == MPI_SUCCESS) {
        *request = requests.update(handle, native);
    } else {
        requests.release(handle);
        *request = QMX_MPI_REQUEST_NULL;
    }
    return qmxCode(rc);
}

}  // namespace tolm::mpidriver
