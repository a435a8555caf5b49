// Translation of statuses between the MPI library's MPI_Status and QMX_MPI_Status_struct.
// Native to wrapper runs after every receive, so it reads the received byte count from the
// status fields that Open MPI and MPICH publish in mpi.h instead of calling
// MPI_Get_elements_x; other MPIs take the portable calls. Wrapper to native uses only
// standard calls (it runs when counts are asked for, off the hot path).
#pragma once

#include <mpi.h>

#include <cstdint>

#include "mpiwrapper/driver/ReservedValues.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpidriver {

inline std::int64_t receivedBytes(const MPI_Status& status) {
#if defined(OPEN_MPI)
    return static_cast<std::int64_t>(status._ucount);
#elif defined(MPICH)
    const auto high =
        static_cast<std::uint64_t>(static_cast<unsigned>(status.count_hi_and_cancelled) >> 1);
    return static_cast<std::int64_t>((high << 32) + static_cast<unsigned>(status.count_lo));
#else
    MPI_Count bytes = 0;
    MPI_Get_elements_x(&status, MPI_BYTE, &bytes);
    return static_cast<std::int64_t>(bytes);
#endif
}

inline int isCancelled(const MPI_Status& status) {
#if defined(OPEN_MPI)
    return status._cancelled != 0;
#elif defined(MPICH)
    return (status.count_hi_and_cancelled & 1) != 0;
#else
    int flag = 0;
    MPI_Test_cancelled(&status, &flag);
    return flag;
#endif
}

// error is the wrapper code to store in the status's error field.
inline void toQmx(const MPI_Status& native, QMX_MPI_Status_struct& status, int error) {
    status.MPI_SOURCE = special::rankToQmx(native.MPI_SOURCE);
    status.MPI_TAG = special::tagToQmx(native.MPI_TAG);
    status.MPI_ERROR = error;
    status.internal_cancelled = isCancelled(native);
    status.internal_bytes = receivedBytes(native);
}

// A native status with the same source, tag, size and cancellation; the error field is
// success (the wrapper's codes have no native equivalent to store).
inline MPI_Status toNative(const QMX_MPI_Status_struct& status) {
    MPI_Status native{};
    native.MPI_SOURCE = special::rankToNative(status.MPI_SOURCE);
    native.MPI_TAG = special::tagToNative(status.MPI_TAG);
    native.MPI_ERROR = MPI_SUCCESS;
    MPI_Status_set_elements_x(&native, MPI_BYTE, static_cast<MPI_Count>(status.internal_bytes));
    MPI_Status_set_cancelled(&native, status.internal_cancelled);
    return native;
}

// The native status of an MPI call that completes one operation, for a caller's status that
// may be QMX_MPI_STATUS_IGNORE. finish() stores the call's result code in the error field.
class SingleStatus {
  public:
    explicit SingleStatus(QMX_MPI_Status_struct* out) : out_(out) {}

    MPI_Status* native() { return out_ ? &native_ : MPI_STATUS_IGNORE; }

    int finish(int code, bool completed = true) {
        if (out_ && completed) {
            toQmx(native_, *out_, code);
        }
        return code;
    }

  private:
    QMX_MPI_Status_struct* out_;
    MPI_Status native_{};
};

}  // namespace tolm::mpidriver
