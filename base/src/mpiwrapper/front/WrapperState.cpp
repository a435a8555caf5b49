#include "mpiwrapper/front/WrapperState.h"

#include <dlfcn.h>

#include "mpiwrapper/front/Refusal.h"

namespace tolm::mpiwrapper {

namespace {

enum class MpiPhase { NotStarted, Running, Finalized };

// Entry by entry: the driver's function, or a refusal returning Code.
#define TOLM_REFUSE(ret, name, params, args) \
    table.name = &Refusal<Code, decltype(table.name)>::call;
#define TOLM_TAKE(ret, name, params, args) \
    table.name = driver.name ? driver.name \
                             : &Refusal<QMX_MPI_ERR_NOT_SUPPORTED, decltype(table.name)>::call;

template <int Code>
constexpr void refuseRunningEntries(MpiDriverTable& table) {
    QMX_MPI_RUNNING_FUNCTIONS(TOLM_REFUSE)
}

template <int Code>
constexpr MpiDriverTable refusingMpiTable() {
    MpiDriverTable table{};
    QMX_MPI_CUSTOM_FUNCTIONS(TOLM_REFUSE)
    QMX_MPI_ANYTIME_FUNCTIONS(TOLM_REFUSE)
    refuseRunningEntries<Code>(table);
    return table;
}

template <int Code>
constexpr MpioDriverTable refusingMpioTable() {
    MpioDriverTable table{};
    QMX_MPIO_FUNCTIONS(TOLM_REFUSE)
    return table;
}

MpiDriverTable composeMpi(const MpiDriverTable& driver, MpiPhase phase) {
    MpiDriverTable table{};
    QMX_MPI_CUSTOM_FUNCTIONS(TOLM_TAKE)
    QMX_MPI_ANYTIME_FUNCTIONS(TOLM_TAKE)
    if (phase == MpiPhase::Running) {
        QMX_MPI_RUNNING_FUNCTIONS(TOLM_TAKE)
    } else if (phase == MpiPhase::NotStarted) {
        refuseRunningEntries<QMX_MPI_ERR_NOT_INITIALIZED>(table);
    } else {
        refuseRunningEntries<QMX_MPI_ERR_FINALIZED>(table);
    }
    return table;
}

MpioDriverTable composeMpio(const MpioDriverTable& driver, MpiPhase phase) {
    if (phase == MpiPhase::NotStarted) {
        return refusingMpioTable<QMX_MPI_ERR_NOT_INITIALIZED>();
    }
    if (phase == MpiPhase::Finalized) {
        return refusingMpioTable<QMX_MPI_ERR_FINALIZED>();
    }
    MpioDriverTable table{};
    QMX_MPIO_FUNCTIONS(TOLM_TAKE)
    return table;
}

#undef TOLM_TAKE
#undef TOLM_REFUSE

const MpiDriverTable* mpiTable = nullptr;
const MpioDriverTable* mpioTable = nullptr;
MpiPhase phase = MpiPhase::NotStarted;

void recompose() {
    if (mpiTable) {
        liveMpi = composeMpi(*mpiTable, phase);
    }
    if (mpioTable) {
        liveMpio = composeMpio(*mpioTable, phase);
    }
}

// The phase of MPI as the driver sees it, so that loading a driver into a process where MPI
// already runs (or has ended) gives the right live table.
MpiPhase phaseOf(const MpiDriverTable& driver) {
    int initialized = 0;
    int finalized = 0;
    if (driver.Finalized && driver.Finalized(&finalized) == QMX_MPI_SUCCESS && finalized) {
        return MpiPhase::Finalized;
    }
    if (driver.Initialized && driver.Initialized(&initialized) == QMX_MPI_SUCCESS && initialized) {
        return MpiPhase::Running;
    }
    return MpiPhase::NotStarted;
}

template <class Table>
int findTable(void* handle, const char* symbol, int missingCode, const Table*& table) {
    if (!handle) {
        return QMX_MPI_ERR_NOT_A_DRIVER;
    }
    using Getter = const Table* (*)();
    auto getter = reinterpret_cast<Getter>(dlsym(handle, symbol));
    if (!getter) {
        return missingCode;
    }
    table = getter();
    if (!table || table->abiVersion != driverAbiVersion || table->size != sizeof(Table)) {
        return QMX_MPI_ERR_DRIVER_MISMATCH;
    }
    return QMX_MPI_SUCCESS;
}

}  // namespace

constinit MpiDriverTable liveMpi = refusingMpiTable<QMX_MPI_ERR_NO_DRIVER>();
constinit MpioDriverTable liveMpio = refusingMpioTable<QMX_MPI_ERR_MPIO_NOT_SUPPORTED>();

namespace wrapperstate {

int loadMpiDriver(void* handle) {
    const MpiDriverTable* table = nullptr;
    if (int rc = findTable(handle, mpiTableSymbol, QMX_MPI_ERR_NOT_A_DRIVER, table)) {
        return rc;
    }
    if (mpiTable && mpiTable != table && phase == MpiPhase::Running) {
        return QMX_MPI_ERR_DRIVER_IN_USE;
    }
    mpiTable = table;
    phase = phaseOf(*table);
    recompose();
    return QMX_MPI_SUCCESS;
}

int loadMpioDriver(void* handle) {
    const MpioDriverTable* table = nullptr;
    if (int rc = findTable(handle, mpioTableSymbol, QMX_MPI_ERR_MPIO_NOT_SUPPORTED, table)) {
        return rc;
    }
    mpioTable = table;
    recompose();
    return QMX_MPI_SUCCESS;
}

const MpiDriverTable* mpiDriver() {
    return mpiTable;
}

void mpiStarted() {
    phase = MpiPhase::Running;
    recompose();
}

void mpiFinalized() {
    phase = MpiPhase::Finalized;
    recompose();
}

bool mpiRunning() {
    return phase == MpiPhase::Running;
}

}  // namespace wrapperstate
}  // namespace tolm::mpiwrapper
