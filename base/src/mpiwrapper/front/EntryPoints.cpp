// The exported functions the front library implements itself: driver loading, the wrapper's
// settings, the start and end of MPI (which switch the live tables) and the error texts.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "mpiwrapper/QmxErrorCodes.h"
#include "mpiwrapper/front/EnvironmentSettings.h"
#include "mpiwrapper/front/ErrorTexts.h"
#include "mpiwrapper/front/WrapperState.h"

using namespace tolm::mpiwrapper;

namespace {

std::uint64_t maxBufferSize = QMX_MPI_DEFAULT_MAX_BUFFER_SIZE;
int yieldWaitFromEnvironment = 0;

void copyText(std::string_view text, char* out, int* length) {
    const std::size_t n = std::min<std::size_t>(text.size(), QMX_MPI_MAX_ERROR_STRING - 1);
    std::memcpy(out, text.data(), n);
    out[n] = '\0';
    *length = static_cast<int>(n);
}

}  // namespace

int QMX_MPI_Initialize(void* handle) {
    std::uint64_t bytes = 0;
    int yieldWait = 0;
    if (!environment::readMaxBufferSize(bytes) || !environment::readYieldWait(yieldWait)) {
        return QMX_MPI_ERR_BAD_ENVIRONMENT;
    }
    if (int rc = wrapperstate::loadMpiDriver(handle)) {
        return rc;
    }
    maxBufferSize = bytes;
    yieldWaitFromEnvironment = yieldWait;
    return QMX_MPI_SUCCESS;
}

int QMX_MPIO_Initialize(void* handle) {
    return wrapperstate::loadMpioDriver(handle);
}

std::uint64_t QMX_MPI_Get_max_buffer_size(void) {
    return maxBufferSize;
}

int QMX_MPI_disable_cpu_bind_collision_test(int* flag) {
    if (!flag) {
        return QMX_MPI_ERR_ARG;
    }
    *flag = 0;
    return environment::readCpuBindCollisionTestDisabled(*flag) ? QMX_MPI_SUCCESS
                                                                : QMX_MPI_ERR_BAD_ENVIRONMENT;
}

int QMX_MPI_Init(int* argc, char*** argv) {
    const int rc = liveMpi.Init(argc, argv);
    if (rc == QMX_MPI_SUCCESS) {
        wrapperstate::mpiStarted();
        liveMpi.Set_yield_wait(yieldWaitFromEnvironment);
    }
    return rc;
}

int QMX_MPI_Init_thread(int* argc, char*** argv, int required, int* provided) {
    const int rc = liveMpi.Init_thread(argc, argv, required, provided);
    if (rc == QMX_MPI_SUCCESS) {
        wrapperstate::mpiStarted();
        liveMpi.Set_yield_wait(yieldWaitFromEnvironment);
    }
    return rc;
}

int QMX_MPI_Finalize(void) {
    const int rc = liveMpi.Finalize();
    if (rc == QMX_MPI_SUCCESS) {
        wrapperstate::mpiFinalized();
    }
    return rc;
}

// Decoded here from the layout of the codes, so that it works in every state of the wrapper.
int QMX_MPI_Error_class(int errorcode, int* errorclass) {
    if (!errorclass || !errorcode::isValid(errorcode)) {
        return QMX_MPI_ERR_ARG;
    }
    *errorclass = errorcode::isWrapperCode(errorcode) ? errorcode : errorcode::classOf(errorcode);
    return QMX_MPI_SUCCESS;
}

// The running MPI's own text where there is one, else the wrapper's text for the class.
int QMX_MPI_Error_string(int errorcode, char* string, int* resultlen) {
    if (!string || !resultlen) {
        return QMX_MPI_ERR_ARG;
    }
    if (errorcode::isWrapperCode(errorcode)) {
        copyText(errortexts::forWrapperCode(errorcode), string, resultlen);
        return QMX_MPI_SUCCESS;
    }
    if (!errorcode::isValid(errorcode)) {
        copyText("Invalid error code " + std::to_string(errorcode), string, resultlen);
        return QMX_MPI_ERR_ARG;
    }
    if (wrapperstate::mpiRunning() &&
        liveMpi.Error_string(errorcode, string, resultlen) == QMX_MPI_SUCCESS) {
        return QMX_MPI_SUCCESS;
    }
    copyText(errortexts::forClass(errorcode::classOf(errorcode)), string, resultlen);
    return QMX_MPI_SUCCESS;
}
