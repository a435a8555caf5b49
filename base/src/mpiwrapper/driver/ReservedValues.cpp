#include "mpiwrapper/driver/ReservedValues.h"

#include <utility>

namespace tolm::mpidriver::special {

namespace {

// The wrapper value of each bit, and the native value it stands for.
template <std::size_t N>
int translateBits(int bits, const std::pair<int, int> (&pairs)[N], int errorClass) {
    int native = 0;
    for (const auto& [qmx, nativeBit] : pairs) {
        if (bits & qmx) {
            native |= nativeBit;
            bits &= ~qmx;
        }
    }
    if (bits != 0) {
        throw HandleError{errorClass};
    }
    return native;
}

template <std::size_t N>
int translateValue(int value, const std::pair<int, int> (&pairs)[N], int errorClass) {
    for (const auto& [from, to] : pairs) {
        if (value == from) {
            return to;
        }
    }
    throw HandleError{errorClass};
}

}  // namespace

int fileModeToNative(int amode) {
    const std::pair<int, int> modes[] = {
        {QMX_MPI_MODE_CREATE, MPI_MODE_CREATE},
        {QMX_MPI_MODE_RDONLY, MPI_MODE_RDONLY},
        {QMX_MPI_MODE_WRONLY, MPI_MODE_WRONLY},
        {QMX_MPI_MODE_RDWR, MPI_MODE_RDWR},
        {QMX_MPI_MODE_DELETE_ON_CLOSE, MPI_MODE_DELETE_ON_CLOSE},
        {QMX_MPI_MODE_UNIQUE_OPEN, MPI_MODE_UNIQUE_OPEN},
        {QMX_MPI_MODE_EXCL, MPI_MODE_EXCL},
        {QMX_MPI_MODE_APPEND, MPI_MODE_APPEND},
        {QMX_MPI_MODE_SEQUENTIAL, MPI_MODE_SEQUENTIAL},
    };
    return translateBits(amode, modes, QMX_MPI_ERR_AMODE);
}

int whenceToNative(int whence) {
    const std::pair<int, int> values[] = {
        {QMX_MPI_SEEK_SET, MPI_SEEK_SET},
        {QMX_MPI_SEEK_CUR, MPI_SEEK_CUR},
        {QMX_MPI_SEEK_END, MPI_SEEK_END},
    };
    return translateValue(whence, values, QMX_MPI_ERR_ARG);
}

int windowAssertionToNative(int assertion) {
    const std::pair<int, int> modes[] = {
        {QMX_MPI_MODE_NOCHECK, MPI_MODE_NOCHECK},     {QMX_MPI_MODE_NOSTORE, MPI_MODE_NOSTORE},
        {QMX_MPI_MODE_NOPUT, MPI_MODE_NOPUT},         {QMX_MPI_MODE_NOPRECEDE, MPI_MODE_NOPRECEDE},
        {QMX_MPI_MODE_NOSUCCEED, MPI_MODE_NOSUCCEED},
    };
    return translateBits(assertion, modes, QMX_MPI_ERR_ASSERT);
}

int lockTypeToNative(int lockType) {
    const std::pair<int, int> values[] = {
        {QMX_MPI_LOCK_EXCLUSIVE, MPI_LOCK_EXCLUSIVE},
        {QMX_MPI_LOCK_SHARED, MPI_LOCK_SHARED},
    };
    return translateValue(lockType, values, QMX_MPI_ERR_LOCKTYPE);
}

int threadLevelToNative(int level) {
    const std::pair<int, int> values[] = {
        {QMX_MPI_THREAD_SINGLE, MPI_THREAD_SINGLE},
        {QMX_MPI_THREAD_FUNNELED, MPI_THREAD_FUNNELED},
        {QMX_MPI_THREAD_SERIALIZED, MPI_THREAD_SERIALIZED},
        {QMX_MPI_THREAD_MULTIPLE, MPI_THREAD_MULTIPLE},
    };
    return translateValue(level, values, QMX_MPI_ERR_ARG);
}

int threadLevelToQmx(int level) {
    const std::pair<int, int> values[] = {
        {MPI_THREAD_SINGLE, QMX_MPI_THREAD_SINGLE},
        {MPI_THREAD_FUNNELED, QMX_MPI_THREAD_FUNNELED},
        {MPI_THREAD_SERIALIZED, QMX_MPI_THREAD_SERIALIZED},
        {MPI_THREAD_MULTIPLE, QMX_MPI_THREAD_MULTIPLE},
    };
    return translateValue(level, values, QMX_MPI_ERR_INTERN);
}

int splitTypeToNative(int splitType) {
    const std::pair<int, int> values[] = {
        {QMX_MPI_COMM_TYPE_SHARED, MPI_COMM_TYPE_SHARED},
        {QMX_MPI_UNDEFINED, MPI_UNDEFINED},
    };
    return translateValue(splitType, values, QMX_MPI_ERR_ARG);
}

int keyvalToNative(int keyval) {
    const std::pair<int, int> values[] = {
        {QMX_MPI_TAG_UB, MPI_TAG_UB},
        {QMX_MPI_WTIME_IS_GLOBAL, MPI_WTIME_IS_GLOBAL},
        {QMX_MPI_UNIVERSE_SIZE, MPI_UNIVERSE_SIZE},
        {QMX_MPI_APPNUM, MPI_APPNUM},
    };
    return translateValue(keyval, values, QMX_MPI_ERR_KEYVAL);
}

int comparisonToQmx(int result) {
    const std::pair<int, int> values[] = {
        {MPI_IDENT, QMX_MPI_IDENT},
        {MPI_CONGRUENT, QMX_MPI_CONGRUENT},
        {MPI_SIMILAR, QMX_MPI_SIMILAR},
        {MPI_UNEQUAL, QMX_MPI_UNEQUAL},
    };
    return translateValue(result, values, QMX_MPI_ERR_INTERN);
}

}  // namespace tolm::mpidriver::special
