#include "machine/comm/MpiCore.h"

#include <algorithm>

#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"

namespace tolm {

std::string MpiCore::_distribName;
std::string MpiCore::_mpiVersionName;
TypedSubject<> MpiCore::_onFinalizationObservable;

std::string MpiCore::errorString(int err) {
    constexpr int bufferSize = std::max(2048, QMX_MPI_MAX_ERROR_STRING);
    char buffer[bufferSize] = {};
    int length = 0;
    if (QMX_MPI_Error_string(err, buffer, &length) != QMX_MPI_SUCCESS) {
        return "unknown MPI error code " + std::to_string(err);
    }
    return std::string(buffer, std::size_t(std::clamp(length, 0, bufferSize)));
}

void MpiCore::throwError(int err) {
    throw NonRecoverableError("MPI Error : " + errorString(err));
}

void MpiCore::throwError(int err, const std::vector<QMX_MPI_Status_struct>& statuses) {
    std::string text = "MPI Errors[" + std::to_string(err) + "] :";
    if (err == QMX_MPI_ERR_IN_STATUS) {
        for (std::size_t i = 0; i < statuses.size(); ++i) {
            if (statuses[i].MPI_ERROR == QMX_MPI_SUCCESS)
                continue;
            text +=
                "Status index[" + std::to_string(i) + "] :" + errorString(statuses[i].MPI_ERROR);
        }
    } else {
        text += errorString(err);
    }
    throw NonRecoverableError("MPI Error : " + text);
}

void MpiCore::finalize() {
    _onFinalizationObservable.notify();
    handleError(QMX_MPI_Finalize());
}

bool MpiCore::hasMpiSharedMemory() {
    int mpiVersion = 0;
    int mpiSubversion = 0;
    TOLM_ASSERT(QMX_MPI_Get_version(&mpiVersion, &mpiSubversion) == QMX_MPI_SUCCESS,
                "MPI_Get_version failed");
    return mpiVersion >= 3;
}

bool MpiCore::disableCpuBindingCollisionTest() {
    int flag = 0;
    handleError(QMX_MPI_disable_cpu_bind_collision_test(&flag));
    return flag == 1;
}

void MpiCore::setYieldingWaits(bool yielding) {
    handleError(QMX_MPI_Set_yield_wait(yielding ? 1 : 0));
}

bool MpiCore::yieldingWaits() {
    int flag = 0;
    handleError(QMX_MPI_Get_yield_wait(&flag));
    return flag == 1;
}

}  // namespace tolm
