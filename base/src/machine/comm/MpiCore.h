#pragma once
#include <string>
#include <vector>

#include "mpiwrapper/qmx_mpi.h"
#include "neo/Subject.h"

namespace tolm {

// The layer between the machine and the MPI wrapper library. Every QMX_MPI_* return code
// goes straight to `handleError`, which turns any failure into a NonRecoverableError with
// "MPI Error : " and the wrapper's text; no caller inspects a return code itself.
class MpiCore {
  public:
    static constexpr int ANY_TAG = QMX_MPI_ANY_TAG;
    static constexpr int ANY_SOURCE = QMX_MPI_ANY_SOURCE;

    class RequestStack;
    class PersistentRequestStack;
    class DerivedDatatype;
    class MpiWallTimer;

    // Inline, so that a successful call costs one comparison.
    static void handleError(const int& err) {
        if (err != QMX_MPI_SUCCESS)
            throwError(err);
    }
    static void handleError(const int& err, const QMX_MPI_Status_struct& status) {
        if (err != QMX_MPI_SUCCESS)
            throwError(err, std::vector<QMX_MPI_Status_struct>{status});
    }
    static void handleError(const int& err, const std::vector<QMX_MPI_Status_struct>& statuses) {
        if (err != QMX_MPI_SUCCESS)
            throwError(err, statuses);
    }
    // The wrapper's text for an error code.
    static std::string errorString(int err);

    // Tells the finalisation observers (holders of MPI objects release them), then finalises.
    static void finalize();
    static TypedSubject<>& getOnFinalizationObservable() { return _onFinalizationObservable; }

    // True when the driver's MPI offers shared-memory windows (MPI 3 or later).
    static bool hasMpiSharedMemory();
    static bool disableCpuBindingCollisionTest();

    // Whether every blocking MPI call of this process yields the processor while it waits
    // instead of spinning (QMX_MPI_Set_yield_wait): on for a host that runs more processes
    // than LPUs, or by "-yieldwait". Only while MPI runs, between calls.
    static void setYieldingWaits(bool yielding);
    static bool yieldingWaits();

    // Names of the MPI distribution and version in use, as the job reports them.
    static std::string getDistribName() { return _distribName; }
    static void setDistribName(const std::string& name) { _distribName = name; }
    static std::string getMpiVersionName() { return _mpiVersionName; }
    static void setMpiVersionName(const std::string& name) { _mpiVersionName = name; }

  private:
    [[noreturn]] static void throwError(int err);
    [[noreturn]] static void throwError(int err,
                                        const std::vector<QMX_MPI_Status_struct>& statuses);

    static std::string _distribName;
    static std::string _mpiVersionName;
    static TypedSubject<> _onFinalizationObservable;
};

}  // namespace tolm
