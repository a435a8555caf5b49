// The contract between the front library and a driver library: each driver exports two C
// functions returning its tables of implementations, one for MPI and one for MPI-IO. The front
// finds them by name with dlsym on the handle given to QMX_MPI_Initialize/QMX_MPIO_Initialize.
#pragma once

#include <cstdint>

#include "mpiwrapper/QmxFunctionLists.h"

namespace tolm::mpiwrapper {

// Raised whenever a table's layout or a function's meaning changes, so that a front never
// calls a driver built for another layout.
inline constexpr std::uint32_t driverAbiVersion = 2;

#define TOLM_QMX_TABLE_ENTRY(ret, name, params, args) decltype(&QMX_MPI_##name) name;

struct MpiDriverTable {
    std::uint32_t abiVersion;
    std::uint32_t size;  // sizeof(MpiDriverTable) of the driver's build
    QMX_MPI_CUSTOM_FUNCTIONS(TOLM_QMX_TABLE_ENTRY)
    QMX_MPI_ANYTIME_FUNCTIONS(TOLM_QMX_TABLE_ENTRY)
    QMX_MPI_RUNNING_FUNCTIONS(TOLM_QMX_TABLE_ENTRY)
};

struct MpioDriverTable {
    std::uint32_t abiVersion;
    std::uint32_t size;  // sizeof(MpioDriverTable) of the driver's build
    QMX_MPIO_FUNCTIONS(TOLM_QMX_TABLE_ENTRY)
};

#undef TOLM_QMX_TABLE_ENTRY

using MpiDriverTableGetter = const MpiDriverTable* (*)();
using MpioDriverTableGetter = const MpioDriverTable* (*)();

inline constexpr const char* mpiTableSymbol = "TolmMpiDriver_mpiTable";
inline constexpr const char* mpioTableSymbol = "TolmMpiDriver_mpioTable";

}  // namespace tolm::mpiwrapper
