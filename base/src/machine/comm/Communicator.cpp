#include "machine/comm/Communicator.h"

#include "machine/comm/CommunicatorCall.h"

#include <cstdio>
#include <limits>
#include <thread>

#include "machine/comm/MpiCore.h"
#include "neo/Controller.h"
#include "neo/InternalError.h"
#include "platform/Thread.h"

namespace tolm {

unsigned int Communicator::_master = 0;
const char* Communicator::_oversizedMessageString =
    "An oversized communication message has been detected.";
const char* Communicator::_oversizedMessageHint =
    "Oversized messages may imply too few parallel processes are being used.";

Communicator::Tag::Tag(int tag) : _tag(tag) {
    // MPI guarantees an upper bound of at least 32767, so small tags need no look-up.
    if (tag >= 0 && tag <= 32767)
        return;
    TOLM_ASSERT(tag < upper_bound() || tag == MpiCore::ANY_TAG, "out_of_bounds Communicator Tag");
}

int Communicator::Tag::upper_bound() {
    static const int bound = [] {
        int* value = nullptr;  // MPI hands out a pointer to its own attribute
        int flag = 0;
        MpiCore::handleError(
            QMX_MPI_Comm_get_attr(QMX_MPI_COMM_WORLD, QMX_MPI_TAG_UB, &value, &flag));
        return (flag && value) ? *value : 32767;
    }();
    return bound;
}

Communicator::Communicator() : Communicator(QMX_MPI_COMM_WORLD) {}

Communicator::Communicator(const int& handle) : _handle(handle) {
    MpiCore::handleError(QMX_MPI_Comm_group(_handle, &_group));
    int size = 0;
    int rank = 0;
    MpiCore::handleError(QMX_MPI_Comm_size(_handle, &size));
    MpiCore::handleError(QMX_MPI_Comm_rank(_handle, &rank));
    TOLM_ASSERT(size > 0, "Zero or negative MPI comm size");
    TOLM_ASSERT(rank >= 0, "Negative MPI rank");
    _size = static_cast<unsigned int>(size);
    _myRank = static_cast<unsigned int>(rank);
    _maxBufferSize = QMX_MPI_Get_max_buffer_size();
    char name[QMX_MPI_MAX_PROCESSOR_NAME] = {};
    int namelen = 0;
    MpiCore::handleError(QMX_MPI_Get_processor_name(name, &namelen));
    TOLM_ASSERT(namelen + 1 < QMX_MPI_MAX_PROCESSOR_NAME, "Overflow on processor name");
    _name.assign(name, std::size_t(namelen));
}

Communicator::~Communicator() {
    // Destructors never throw: a failure to free is left to MPI's own clean-up at finalize.
    if (_handle != QMX_MPI_COMM_WORLD && _handle != QMX_MPI_COMM_NULL)
        QMX_MPI_Comm_free(&_handle);
    QMX_MPI_Group_free(&_group);
}

std::unique_ptr<Communicator> Communicator::createCommunicator(
    const std::vector<unsigned int>& ranks) {
    const unsigned int size = _size;
    TOLM_ASSERT(ranks.size() <= size, "Invalid number of ranks");
    std::vector<int> members(ranks.size());
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        TOLM_ASSERT(ranks[i] < size, "Rank exceeds old communicator in createCommunicator()");
        TOLM_ASSERT(ranks[i] <= static_cast<unsigned int>(std::numeric_limits<int>::max()),
                    "Rank exceeds maximum integer range");
        members[i] = static_cast<int>(ranks[i]);
    }
    checkSerialCriticalLock();
    int newGroup = QMX_MPI_GROUP_NULL;
    int newComm = QMX_MPI_COMM_NULL;
    MpiCore::handleError(
        QMX_MPI_Group_incl(_group, static_cast<int>(members.size()), members.data(), &newGroup));
    MpiCore::handleError(QMX_MPI_Comm_create(_handle, newGroup, &newComm));
    MpiCore::handleError(QMX_MPI_Group_free(&newGroup));
    if (newComm == QMX_MPI_COMM_NULL)
        return nullptr;
    return std::unique_ptr<Communicator>(new Communicator(newComm));
}

std::unique_ptr<Communicator> Communicator::createSharedMemCommunicators() {
    checkSerialCriticalLock();
    int newComm = QMX_MPI_COMM_NULL;
    MpiCore::handleError(
        QMX_MPI_Comm_split_type(_handle, QMX_MPI_COMM_TYPE_SHARED, 0, QMX_MPI_INFO_NULL, &newComm));
    return std::unique_ptr<Communicator>(new Communicator(newComm));
}

std::unique_ptr<Communicator> Communicator::duplicate() {
    checkSerialCriticalLock();
    int copy = QMX_MPI_COMM_NULL;
    MpiCore::handleError(QMX_MPI_Comm_dup(_handle, &copy));
    return std::unique_ptr<Communicator>(new Communicator(copy));
}

void Communicator::abort(const ExitStatus& status) {
    std::fflush(stdout);
    std::fflush(stderr);
    // The launcher forwards each process's output asynchronously and an abort tears the job
    // down at once: give it a moment to pass on what this process printed last.
    std::this_thread::sleep_for(abortGraceTime);
    QMX_MPI_Abort(_handle, int(status));
}

void Communicator::setMaxBufferSize(std::uint64_t bytes) {
    std::printf("Warning, modifying the maximum message size from %llu to %llu\n",
                static_cast<unsigned long long>(_maxBufferSize),
                static_cast<unsigned long long>(bytes));
    _maxBufferSize = bytes;
}

void Communicator::synchronise() {
    communicate("Communicator::Synchronise", 0, -1, [&] { return QMX_MPI_Barrier(_handle); });
}

}  // namespace tolm
