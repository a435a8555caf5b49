#include "machine/comm/RequestStack.h"

#include <array>
#include <cstdio>

#include "neo/InternalError.h"

namespace tolm {
namespace {

// Statuses of a few requests live on the stack: waits on small stacks allocate nothing.
class StatusBuffer {
  public:
    explicit StatusBuffer(std::size_t count) : _count(count) {
        if (count > _local.size())
            _heap.resize(count);
    }
    QMX_MPI_Status_struct* data() { return _heap.empty() ? _local.data() : _heap.data(); }
    std::vector<QMX_MPI_Status_struct> copy() { return {data(), data() + _count}; }

  private:
    std::size_t _count;
    std::array<QMX_MPI_Status_struct, 8> _local{};
    std::vector<QMX_MPI_Status_struct> _heap;
};

}  // namespace

MpiCore::RequestStack::RequestStack(int& request) : _requests{request} {
    request = QMX_MPI_REQUEST_NULL;
}

MpiCore::RequestStack::RequestStack(const RequestStack& other) {
    checkCopyable(other);
}

MpiCore::RequestStack& MpiCore::RequestStack::operator=(const RequestStack& other) {
    checkCopyable(other);
    return *this;
}

MpiCore::RequestStack::~RequestStack() {
    if (_requests.empty())
        return;
    std::printf("Warning : Request stack is non-empty!\n");
    for (int& request : _requests) {
        if (request != QMX_MPI_REQUEST_NULL)
            QMX_MPI_Request_free(&request);
    }
}

void MpiCore::RequestStack::checkCopyable(const RequestStack& rhs) const {
    TOLM_ASSERT(this->_requests.empty() && rhs._requests.empty(),
                "Cannot copy or assign non-empty request stacks");
}

int* MpiCore::RequestStack::push_back() {
    _requests.push_back(QMX_MPI_REQUEST_NULL);
    return &_requests.back();
}

int MpiCore::RequestStack::pop() {
    if (_requests.empty())
        return QMX_MPI_REQUEST_NULL;
    const int request = _requests.back();
    _requests.pop_back();
    return request;
}

void MpiCore::RequestStack::wait() {
    if (_requests.empty())
        return;
    if (_requests.size() == 1) {
        QMX_MPI_Status_struct status{};
        handleError(QMX_MPI_Wait(&_requests[0], &status), status);
    } else {
        StatusBuffer statuses(_requests.size());
        const int err = QMX_MPI_Waitall(count(), _requests.data(), statuses.data());
        if (err != QMX_MPI_SUCCESS)
            handleError(err, statuses.copy());
    }
    dropCompleted();
}

void MpiCore::RequestStack::wait(std::vector<unsigned int>& sources) {
    if (_requests.empty())
        return;
    std::vector<QMX_MPI_Status_struct> statuses(_requests.size());
    handleError(QMX_MPI_Waitall(count(), _requests.data(), statuses.data()), statuses);
    sources.resize(statuses.size());
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        sources[i] = static_cast<unsigned int>(statuses[i].MPI_SOURCE);
    }
    clear();
}

void MpiCore::RequestStack::waitAny(unsigned int& index) {
    int completed = QMX_MPI_UNDEFINED;
    QMX_MPI_Status_struct status{};
    handleError(QMX_MPI_Waitany(count(), _requests.data(), &completed, &status), status);
    TOLM_ASSERT(completed != QMX_MPI_UNDEFINED, "RequestStack::waitAny returned undefined!");
    index = static_cast<unsigned int>(completed);
    remove(index);
}

bool MpiCore::RequestStack::test() {
    if (_requests.empty())
        return true;
    int flag = 0;
    if (_requests.size() == 1) {
        QMX_MPI_Status_struct status{};
        handleError(QMX_MPI_Test(&_requests[0], &flag, &status), status);
    } else {
        StatusBuffer statuses(_requests.size());
        const int err = QMX_MPI_Testall(count(), _requests.data(), &flag, statuses.data());
        if (err != QMX_MPI_SUCCESS)
            handleError(err, statuses.copy());
    }
    if (!flag)
        return false;
    dropCompleted();
    return true;
}

bool MpiCore::RequestStack::testAny(unsigned int& index) {
    int completed = QMX_MPI_UNDEFINED;
    int flag = 0;
    QMX_MPI_Status_struct status{};
    handleError(QMX_MPI_Testany(count(), _requests.data(), &completed, &flag, &status), status);
    if (!flag || completed == QMX_MPI_UNDEFINED)
        return false;
    index = static_cast<unsigned int>(completed);
    remove(index);
    return true;
}

void MpiCore::RequestStack::cancel() {
    cancelNoWait();
    wait();
}

void MpiCore::RequestStack::cancelNoWait() {
    for (int& request : _requests)
        handleError(QMX_MPI_Cancel(&request));
}

void MpiCore::RequestStack::free() {
    for (int& request : _requests)
        handleError(QMX_MPI_Request_free(&request));
    clear();
}

void MpiCore::RequestStack::dropCompleted() {
    std::erase(_requests, QMX_MPI_REQUEST_NULL);
}

void MpiCore::RequestStack::clear() {
    for (std::size_t i = 0; i < _requests.size(); ++i) {
        TOLM_ASSERT(_requests[i] == QMX_MPI_REQUEST_NULL, "Clearing non-null Request!");
    }
    _requests.clear();
}

void MpiCore::RequestStack::remove(const unsigned int& i) {
    _requests.erase(_requests.begin() + i);
}

}  // namespace tolm
