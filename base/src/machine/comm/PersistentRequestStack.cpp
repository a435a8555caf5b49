#include "machine/comm/PersistentRequestStack.h"

namespace tolm {

MpiCore::PersistentRequestStack::~PersistentRequestStack() {
    // Freeing persistent requests is this stack's normal end, not a leak to warn about.
    for (int& request : _requests) {
        if (request != QMX_MPI_REQUEST_NULL)
            QMX_MPI_Request_free(&request);
    }
    _requests.clear();
}

void MpiCore::PersistentRequestStack::start() {
    if (_requests.empty())
        return;
    if (_requests.size() == 1) {
        handleError(QMX_MPI_Start(&_requests[0]));
    } else {
        handleError(QMX_MPI_Startall(count(), _requests.data()));
    }
}

void MpiCore::PersistentRequestStack::clear() {
    for (int& request : _requests) {
        if (request != QMX_MPI_REQUEST_NULL)
            handleError(QMX_MPI_Request_free(&request));
    }
    _requests.clear();
}

void MpiCore::PersistentRequestStack::remove(const unsigned int& i) {
    int& request = _requests[i];
    if (request != QMX_MPI_REQUEST_NULL)
        handleError(QMX_MPI_Request_free(&request));
    _requests.erase(_requests.begin() + i);
}

}  // namespace tolm
