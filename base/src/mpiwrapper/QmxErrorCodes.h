// The layout of the wrapper's error codes, written by the drivers and read by the front:
// a code below 0x40000000 holds its error class in the low 7 bits; the bits above, when not
// zero, are a reference the driver uses to find the MPI library's own error code again.
#pragma once

#include <cstdint>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpiwrapper::errorcode {

inline constexpr int classBits = 7;
inline constexpr int classMask = (1 << classBits) - 1;
inline constexpr int firstWrapperCode = 0x40000000;
// References run from 1 to maxReference, so that every code stays below firstWrapperCode.
inline constexpr std::uint32_t maxReference = (firstWrapperCode >> classBits) - 1;

constexpr bool isWrapperCode(int code) {
    return code > firstWrapperCode && code <= QMX_MPI_ERR_LASTCODE;
}

constexpr bool isErrorClass(int errorClass) {
    return errorClass >= QMX_MPI_SUCCESS && errorClass <= QMX_MPI_ERR_RMA_FLAVOR &&
           errorClass != 54;  // 54 is a gap in the MPI numbering of classes
}

constexpr int classOf(int code) {
    return code & classMask;
}
constexpr std::uint32_t referenceOf(int code) {
    return static_cast<std::uint32_t>(code) >> classBits;
}
constexpr int compose(int errorClass, std::uint32_t reference) {
    return errorClass | static_cast<int>(reference << classBits);
}

// True for every code a driver or the front can return (and only for those).
constexpr bool isValid(int code) {
    return isWrapperCode(code) ||
           (code >= 0 && code < firstWrapperCode && isErrorClass(classOf(code)));
}

}  // namespace tolm::mpiwrapper::errorcode
