#include "mpiwrapper/driver/ErrorTranslator.h"

#include <utility>

#include "mpiwrapper/QmxErrorCodes.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpidriver {

namespace ec = mpiwrapper::errorcode;

namespace {

// Native class and wrapper class of every class both know.
constexpr std::pair<int, int> classPairs[] = {
    {MPI_SUCCESS, QMX_MPI_SUCCESS},
    {MPI_ERR_BUFFER, QMX_MPI_ERR_BUFFER},
    {MPI_ERR_COUNT, QMX_MPI_ERR_COUNT},
    {MPI_ERR_TYPE, QMX_MPI_ERR_TYPE},
    {MPI_ERR_TAG, QMX_MPI_ERR_TAG},
    {MPI_ERR_COMM, QMX_MPI_ERR_COMM},
    {MPI_ERR_RANK, QMX_MPI_ERR_RANK},
    {MPI_ERR_ROOT, QMX_MPI_ERR_ROOT},
    {MPI_ERR_GROUP, QMX_MPI_ERR_GROUP},
    {MPI_ERR_OP, QMX_MPI_ERR_OP},
    {MPI_ERR_TOPOLOGY, QMX_MPI_ERR_TOPOLOGY},
    {MPI_ERR_DIMS, QMX_MPI_ERR_DIMS},
    {MPI_ERR_ARG, QMX_MPI_ERR_ARG},
    {MPI_ERR_UNKNOWN, QMX_MPI_ERR_UNKNOWN},
    {MPI_ERR_TRUNCATE, QMX_MPI_ERR_TRUNCATE},
    {MPI_ERR_OTHER, QMX_MPI_ERR_OTHER},
    {MPI_ERR_INTERN, QMX_MPI_ERR_INTERN},
    {MPI_ERR_IN_STATUS, QMX_MPI_ERR_IN_STATUS},
    {MPI_ERR_PENDING, QMX_MPI_ERR_PENDING},
    {MPI_ERR_REQUEST, QMX_MPI_ERR_REQUEST},
    {MPI_ERR_ACCESS, QMX_MPI_ERR_ACCESS},
    {MPI_ERR_AMODE, QMX_MPI_ERR_AMODE},
    {MPI_ERR_BAD_FILE, QMX_MPI_ERR_BAD_FILE},
    {MPI_ERR_CONVERSION, QMX_MPI_ERR_CONVERSION},
    {MPI_ERR_DUP_DATAREP, QMX_MPI_ERR_DUP_DATAREP},
    {MPI_ERR_FILE_EXISTS, QMX_MPI_ERR_FILE_EXISTS},
    {MPI_ERR_FILE_IN_USE, QMX_MPI_ERR_FILE_IN_USE},
    {MPI_ERR_FILE, QMX_MPI_ERR_FILE},
    {MPI_ERR_INFO, QMX_MPI_ERR_INFO},
    {MPI_ERR_INFO_KEY, QMX_MPI_ERR_INFO_KEY},
    {MPI_ERR_INFO_VALUE, QMX_MPI_ERR_INFO_VALUE},
    {MPI_ERR_INFO_NOKEY, QMX_MPI_ERR_INFO_NOKEY},
    {MPI_ERR_IO, QMX_MPI_ERR_IO},
    {MPI_ERR_NAME, QMX_MPI_ERR_NAME},
    {MPI_ERR_NO_MEM, QMX_MPI_ERR_NO_MEM},
    {MPI_ERR_NOT_SAME, QMX_MPI_ERR_NOT_SAME},
    {MPI_ERR_NO_SPACE, QMX_MPI_ERR_NO_SPACE},
    {MPI_ERR_NO_SUCH_FILE, QMX_MPI_ERR_NO_SUCH_FILE},
    {MPI_ERR_PORT, QMX_MPI_ERR_PORT},
    {MPI_ERR_QUOTA, QMX_MPI_ERR_QUOTA},
    {MPI_ERR_READ_ONLY, QMX_MPI_ERR_READ_ONLY},
    {MPI_ERR_SERVICE, QMX_MPI_ERR_SERVICE},
    {MPI_ERR_SPAWN, QMX_MPI_ERR_SPAWN},
    {MPI_ERR_UNSUPPORTED_DATAREP, QMX_MPI_ERR_UNSUPPORTED_DATAREP},
    {MPI_ERR_UNSUPPORTED_OPERATION, QMX_MPI_ERR_UNSUPPORTED_OPERATION},
    {MPI_ERR_WIN, QMX_MPI_ERR_WIN},
    {MPI_ERR_BASE, QMX_MPI_ERR_BASE},
    {MPI_ERR_LOCKTYPE, QMX_MPI_ERR_LOCKTYPE},
    {MPI_ERR_KEYVAL, QMX_MPI_ERR_KEYVAL},
    {MPI_ERR_RMA_CONFLICT, QMX_MPI_ERR_RMA_CONFLICT},
    {MPI_ERR_RMA_SYNC, QMX_MPI_ERR_RMA_SYNC},
    {MPI_ERR_SIZE, QMX_MPI_ERR_SIZE},
    {MPI_ERR_DISP, QMX_MPI_ERR_DISP},
    {MPI_ERR_ASSERT, QMX_MPI_ERR_ASSERT},
    {MPI_ERR_RMA_RANGE, QMX_MPI_ERR_RMA_RANGE},
    {MPI_ERR_RMA_ATTACH, QMX_MPI_ERR_RMA_ATTACH},
    {MPI_ERR_RMA_SHARED, QMX_MPI_ERR_RMA_SHARED},
    {MPI_ERR_RMA_FLAVOR, QMX_MPI_ERR_RMA_FLAVOR},
};

}  // namespace

ErrorTranslator::ErrorTranslator() {
    qmxClassOfNative_.fill(QMX_MPI_ERR_UNKNOWN);
    nativeClassOfQmx_.fill(MPI_ERR_UNKNOWN);
    for (const auto& [native, qmx] : classPairs) {
        qmxClassOfNative_[static_cast<std::size_t>(native)] = qmx;
        nativeClassOfQmx_[static_cast<std::size_t>(qmx)] = native;
    }
}

int ErrorTranslator::qmxClassOf(int nativeClass) const {
    if (nativeClass < 0 || static_cast<std::size_t>(nativeClass) >= classSlots) {
        return QMX_MPI_ERR_UNKNOWN;
    }
    return qmxClassOfNative_[static_cast<std::size_t>(nativeClass)];
}

int ErrorTranslator::translate(int nativeCode) {
    int nativeClass = MPI_ERR_UNKNOWN;
    if (MPI_Error_class(nativeCode, &nativeClass) != MPI_SUCCESS) {
        nativeClass = MPI_ERR_UNKNOWN;
    }
    const int qmxClass = qmxClassOf(nativeClass);
    // Callers compare with the bare class QMX_MPI_ERR_IN_STATUS, so it never carries a
    // reference; the details are in the statuses.
    if (nativeCode == nativeClass || qmxClass == QMX_MPI_ERR_IN_STATUS) {
        return qmxClass;
    }
    const std::uint32_t reference = nextReference_;
    nextReference_ = reference == ec::maxReference ? 1 : reference + 1;
    recent_[reference % recent_.size()] = Remembered{reference, nativeCode};
    return ec::compose(qmxClass, reference);
}

int ErrorTranslator::toQmxWithoutMpi(int nativeCode) const {
    if (nativeCode == MPI_SUCCESS) {
        return QMX_MPI_SUCCESS;
    }
    const bool isClass = nativeCode > 0 && static_cast<std::size_t>(nativeCode) < classSlots;
    return isClass ? qmxClassOf(nativeCode) : QMX_MPI_ERR_OTHER;
}

int ErrorTranslator::toNative(int qmxCode) const {
    if (!ec::isValid(qmxCode) || ec::isWrapperCode(qmxCode)) {
        return -1;
    }
    const std::uint32_t reference = ec::referenceOf(qmxCode);
    const Remembered& entry = recent_[reference % recent_.size()];
    if (reference != 0 && entry.reference == reference) {
        return entry.nativeCode;
    }
    return nativeClassOfQmx_[static_cast<std::size_t>(ec::classOf(qmxCode))];
}

ErrorTranslator errors;

}  // namespace tolm::mpidriver
