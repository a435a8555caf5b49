// The two exported entry points of a driver library: its tables of implementations, which the
// front library looks up by name (QmxDriverTables.h). Nothing else is exported.
#include "mpiwrapper/QmxDriverTables.h"
#include "mpiwrapper/driver/DriverFunctions.h"

using namespace tolm::mpiwrapper;

namespace {

#define TOLM_DRIVER_ENTRY(ret, name, params, args) table.name = &tolm::mpidriver::name;

MpiDriverTable makeMpiTable() {
    MpiDriverTable table{};
    table.abiVersion = driverAbiVersion;
    table.size = sizeof(MpiDriverTable);
    QMX_MPI_CUSTOM_FUNCTIONS(TOLM_DRIVER_ENTRY)
    QMX_MPI_ANYTIME_FUNCTIONS(TOLM_DRIVER_ENTRY)
    QMX_MPI_RUNNING_FUNCTIONS(TOLM_DRIVER_ENTRY)
    return table;
}

MpioDriverTable makeMpioTable() {
    MpioDriverTable table{};
    table.abiVersion = driverAbiVersion;
    table.size = sizeof(MpioDriverTable);
    QMX_MPIO_FUNCTIONS(TOLM_DRIVER_ENTRY)
    return table;
}

#undef TOLM_DRIVER_ENTRY

}  // namespace

extern "C" __attribute__((visibility("default"))) const MpiDriverTable* TolmMpiDriver_mpiTable() {
    static const MpiDriverTable table = makeMpiTable();
    return &table;
}

extern "C" __attribute__((visibility("default"))) const MpioDriverTable* TolmMpiDriver_mpioTable() {
    static const MpioDriverTable table = makeMpioTable();
    return &table;
}
