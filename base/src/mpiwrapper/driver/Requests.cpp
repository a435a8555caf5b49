// Completion, start, cancellation and release of requests. Completion functions update the
// caller's handles from what MPI left in the native requests: a request MPI set to null is
// released and its handle becomes QMX_MPI_REQUEST_NULL; a persistent request stays.
#include "mpiwrapper/driver/ArrayScratch.h"
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/ReservedValues.h"
#include "mpiwrapper/driver/StatusTranslation.h"
#include "mpiwrapper/driver/YieldingWait.h"

namespace tolm::mpidriver {

namespace {

auto& requests = handles.requests;

// The native requests of handles[0..count), in scratch.requests.
MPI_Request* nativeRequests(int count, const int* handlesIn) {
    require(count == 0 || handlesIn != nullptr);
    MPI_Request* natives = sized(scratch.requests, count);
    for (int i = 0; i < count; ++i) {
        natives[i] = requests.slot(handlesIn[i]);
    }
    return natives;
}

void updateHandles(int count, int* handlesOut, const MPI_Request* natives) {
    for (int i = 0; i < count; ++i) {
        handlesOut[i] = requests.update(handlesOut[i], natives[i]);
    }
}

// Native statuses for count completions, or MPI_STATUSES_IGNORE.
MPI_Status* nativeStatuses(int count, QMX_MPI_Status_struct* statuses) {
    return statuses ? sized(scratch.statuses, count) : MPI_STATUSES_IGNORE;
}

// With MPI_ERR_IN_STATUS each status holds its own code; otherwise all share the call's.
void translateStatuses(int count, QMX_MPI_Status_struct* statuses, int rc, int code) {
    if (!statuses) {
        return;
    }
    for (int i = 0; i < count; ++i) {
        const MPI_Status& native = scratch.statuses[static_cast<std::size_t>(i)];
        const int error = rc == MPI_ERR_IN_STATUS ? qmxCode(native.MPI_ERROR) : code;
        toQmx(native, statuses[i], error);
    }
}

int completeAll(int count, int* requestsInOut, QMX_MPI_Status_struct* statuses, int* flag) {
    MPI_Request* natives = nativeRequests(count, requestsInOut);
    MPI_Status* nativeOut = nativeStatuses(count, statuses);
    const int rc = flag              ? MPI_Testall(count, natives, flag, nativeOut)
                   : yieldingWaits() ? waitAllYielding(count, natives, nativeOut)
                                     : MPI_Waitall(count, natives, nativeOut);
    updateHandles(count, requestsInOut, natives);
    const int code = qmxCode(rc);
    if (!flag || *flag || rc == MPI_ERR_IN_STATUS) {
        translateStatuses(count, statuses, rc, code);
    }
    return code;
}

int completeAny(int count, int* requestsInOut, int* index, QMX_MPI_Status_struct* status,
                int* flag) {
    require(index != nullptr);
    MPI_Request* natives = nativeRequests(count, requestsInOut);
    SingleStatus out(status);
    const int rc = flag              ? MPI_Testany(count, natives, index, flag, out.native())
                   : yieldingWaits() ? waitAnyYielding(count, natives, index, out.native())
                                     : MPI_Waitany(count, natives, index, out.native());
    updateHandles(count, requestsInOut, natives);
    const bool completed = (!flag || *flag) && *index != MPI_UNDEFINED;
    *index = special::undefinedToQmx(*index);
    return out.finish(qmxCode(rc), completed);
}

}  // namespace

int Wait(int* request, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        require(request != nullptr);
        MPI_Request& native = requests.slot(*request);
        SingleStatus out(status);
        const int code = qmxCode(yieldingWaits() ? waitYielding(&native, out.native())
                                                 : MPI_Wait(&native, out.native()));
        *request = requests.update(*request, native);
        return out.finish(code);
    });
}

int Test(int* request, int* flag, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        require(request && flag);
        MPI_Request& native = requests.slot(*request);
        SingleStatus out(status);
        const int code = qmxCode(MPI_Test(&native, flag, out.native()));
        *request = requests.update(*request, native);
        return out.finish(code, *flag != 0);
    });
}

int Waitall(int count, int* requestsInOut, QMX_MPI_Status_struct* statuses) {
    return guarded([&] { return completeAll(count, requestsInOut, statuses, nullptr); });
}

int Testall(int count, int* requestsInOut, int* flag, QMX_MPI_Status_struct* statuses) {
    return guarded([&] {
        require(flag != nullptr);
        return completeAll(count, requestsInOut, statuses, flag);
    });
}

int Waitany(int count, int* requestsInOut, int* index, QMX_MPI_Status_struct* status) {
    return guarded([&] { return completeAny(count, requestsInOut, index, status, nullptr); });
}

int Testany(int count, int* requestsInOut, int* index, int* flag, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        require(flag != nullptr);
        return completeAny(count, requestsInOut, index, status, flag);
    });
}

// Starting may replace the native request of a persistent one (Open MPI does when the
// previous operation is still in flight), so the slot is written back.
int Start(int* request) {
    return guarded([&] {
        require(request != nullptr);
        return qmxCode(MPI_Start(&requests.slot(*request)));
    });
}

int Startall(int count, int* requestsInOut) {
    return guarded([&] {
        MPI_Request* natives = nativeRequests(count, requestsInOut);
        const int rc = MPI_Startall(count, natives);
        updateHandles(count, requestsInOut, natives);
        return qmxCode(rc);
    });
}

int Cancel(int* request) {
    return guarded([&] {
        require(request != nullptr);
        return qmxCode(MPI_Cancel(&requests.slot(*request)));
    });
}

int Request_free(int* request) {
    return guarded([&] {
        require(request != nullptr);
        MPI_Request& native = requests.slot(*request);
        const int code = qmxCode(MPI_Request_free(&native));
        *request = requests.update(*request, native);
        return code;
    });
}

}  // namespace tolm::mpidriver
