#include "machine/hybrid/ShmemWindowBase.h"

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/comm/MpiCore.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"

namespace tolm {

ShmemWindowBase::ShmemWindowBase(std::size_t bytes, unsigned int displacementUnit)
    : ShmemWindowBase(bytes, displacementUnit, Machine::sharedMemCommunicator(HOST_SCOPE)) {}

ShmemWindowBase::ShmemWindowBase(std::size_t bytes, unsigned int displacementUnit,
                                 Communicator& comm)
    : _winSize(bytes), _displacementUnit(static_cast<int>(displacementUnit)) {
    commonConstructor(comm);
}

void ShmemWindowBase::commonConstructor(Communicator& comm) {
    TOLM_ASSERT(MpiCore::hasMpiSharedMemory(), "shared memory not available");
    Communicator::checkSerialCriticalLock();
    const auto mine = static_cast<QMX_MPI_Aint>(comm.myRank() == 0 ? _winSize : 0);
    void* ownBlock = nullptr;
    MpiCore::handleError(QMX_MPI_Win_allocate_shared(mine, _displacementUnit, QMX_MPI_INFO_NULL,
                                                     comm.handle(), &ownBlock, &_window));
    QMX_MPI_Aint winSize = 0;
    int unit = 0;
    const int queried = QMX_MPI_Win_shared_query(_window, 0, &winSize, &unit, &_baseAddress);
    if (queried != QMX_MPI_SUCCESS || winSize != static_cast<QMX_MPI_Aint>(_winSize))
        QMX_MPI_Win_free(&_window);  // no destructor runs for a failed construction
    MpiCore::handleError(queried);
    // clang-format off
    TOLM_ASSERT(winSize == (QMX_MPI_Aint)_winSize, "size mismatch");
    // clang-format on
    MpiCore::getOnFinalizationObservable().attach(*this);
}

ShmemWindowBase::~ShmemWindowBase() {
    try {
        free();
    } catch (const NonRecoverableError& error) {
        Machine::handleParallelError(error);  // ends the job
    }
}

void ShmemWindowBase::fence() {
    Communicator::checkSerialCriticalLock();
    MpiCore::handleError(QMX_MPI_Win_fence(0, _window));
}

void ShmemWindowBase::update() {
    free();
}

void ShmemWindowBase::free() {
    MpiCore::getOnFinalizationObservable().detach(*this);
    if (_window == QMX_MPI_WIN_NULL)
        return;
    _baseAddress = nullptr;
    MpiCore::handleError(QMX_MPI_Win_free(&_window));
}

}  // namespace tolm
