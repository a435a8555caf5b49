#include "mpiwrapper/front/ErrorTexts.h"

#include <array>

#include "mpiwrapper/front/EnvironmentSettings.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpiwrapper::errortexts {

namespace {

constexpr std::array<const char*, QMX_MPI_ERR_RMA_FLAVOR + 1> classTexts = {
    "No error",
    "Invalid buffer pointer",
    "Invalid count",
    "Invalid datatype",
    "Invalid tag",
    "Invalid communicator",
    "Invalid rank",
    "Invalid root",
    "Invalid group",
    "Invalid operation",
    "Invalid topology",
    "Invalid dimension",
    "Invalid argument",
    "Unknown error",
    "Message truncated on receive",
    "Other error",
    "Internal error",
    "Error code is in status",
    "Pending request",
    "Invalid request",
    "Permission denied",
    "Invalid file access mode",
    "Invalid file name",
    "Data conversion failed",
    "Data representation defined twice",
    "File exists",
    "File in use",
    "Invalid file handle",
    "Invalid info object",
    "Invalid info key",
    "Invalid info value",
    "Info key not defined",
    "Input/output error",
    "Service name not published",
    "Out of memory",
    "Arguments differ between processes",
    "No space left",
    "File does not exist",
    "Invalid port name",
    "Quota exceeded",
    "Read-only file or file system",
    "Service name error",
    "Cannot spawn processes",
    "Unsupported data representation",
    "Unsupported operation",
    "Invalid window",
    "Invalid base address",
    "Invalid lock type",
    "Invalid attribute key",
    "Conflicting accesses to a window",
    "Wrong synchronisation of window operations",
    "Invalid size",
    "Invalid displacement",
    "Invalid assertion",
    nullptr,
    "Target memory outside the window",
    "Memory cannot be attached to the window",
    "Invalid shared-memory window operation",
    "Window flavor does not allow the operation",
};

}  // namespace

std::string forWrapperCode(int code) {
    switch (code) {
        case QMX_MPI_ERR_NO_DRIVER:
            return "No MPI driver is loaded: QMX_MPI_Initialize must be given a driver first";
        case QMX_MPI_ERR_NOT_A_DRIVER:
            return "The library given to the MPI wrapper is not an MPI driver (null handle or "
                   "no driver table)";
        case QMX_MPI_ERR_DRIVER_MISMATCH:
            return "The MPI driver was built for another version of the MPI wrapper";
        case QMX_MPI_ERR_BAD_ENVIRONMENT:
            return "Invalid MPI wrapper setting: " + environment::lastProblem();
        case QMX_MPI_ERR_NOT_SUPPORTED:
            return "Error accessing MPI function that is not supported";
        case QMX_MPI_ERR_MPIO_NOT_SUPPORTED:
            return "Parallel IO is not supported with this MPI Distribution (no MPI-IO driver "
                   "loaded by QMX_MPIO_Initialize)";
        case QMX_MPI_ERR_NOT_INITIALIZED:
            return "MPI is not initialized: call QMX_MPI_Init first";
        case QMX_MPI_ERR_FINALIZED:
            return "MPI has already been finalized";
        case QMX_MPI_ERR_ALREADY_INITIALIZED:
            return "MPI is already initialized";
        case QMX_MPI_ERR_DRIVER_IN_USE:
            return "Another MPI driver is running MPI in this process";
        default:
            return "Unknown MPI wrapper error code " + std::to_string(code);
    }
}

const char* forClass(int errorClass) {
    if (errorClass < 0 || errorClass >= static_cast<int>(classTexts.size())) {
        return nullptr;
    }
    return classTexts[static_cast<std::size_t>(errorClass)];
}

}  // namespace tolm::mpiwrapper::errortexts
