// Start and end of MPI, versions and names, error texts, the clock and the processor name.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/ReservedValues.h"

#define TOLM_STRINGIFY_VALUE(x) #x
#define TOLM_STRINGIFY(x) TOLM_STRINGIFY_VALUE(x)

namespace tolm::mpidriver {

namespace {

#if defined(OPEN_MPI)
constexpr std::string_view distributionName = "Open MPI";
constexpr std::string_view distributionVersion =
    TOLM_STRINGIFY(OMPI_MAJOR_VERSION) "." TOLM_STRINGIFY(OMPI_MINOR_VERSION) "." TOLM_STRINGIFY(
        OMPI_RELEASE_VERSION);
#elif defined(MPICH)
constexpr std::string_view distributionName = "MPICH";
constexpr std::string_view distributionVersion = MPICH_VERSION;
#else
constexpr std::string_view distributionName = "MPI";
constexpr std::string_view distributionVersion =
    TOLM_STRINGIFY(MPI_VERSION) "." TOLM_STRINGIFY(MPI_SUBVERSION);
#endif

static_assert(MPI_MAX_PROCESSOR_NAME <= QMX_MPI_MAX_PROCESSOR_NAME);
static_assert(MPI_MAX_LIBRARY_VERSION_STRING <= QMX_MPI_MAX_LIBRARY_VERSION_STRING);

int copyText(std::string_view text, char* out, int* length, std::size_t capacity) {
    require(out && length);
    const std::size_t n = std::min(text.size(), capacity - 1);
    std::memcpy(out, text.data(), n);
    out[n] = '\0';
    *length = static_cast<int>(n);
    return QMX_MPI_SUCCESS;
}

// Some Open MPI builds load components that resolve MPI symbols from the global scope, while
// the driver, and with it the MPI library, was opened RTLD_LOCAL. Re-opening the already
// loaded MPI library (found from one of its functions) with RTLD_NOLOAD | RTLD_GLOBAL moves it
// and its dependencies into the global scope before MPI loads any component. Debian's builds
// work either way; the reference taken here is kept, as MPI cannot be unloaded safely anyway.
void makeMpiSymbolsGlobal() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&MPI_Init), &info) != 0 && info.dli_fname) {
        dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL);
    }
}

// MPI_Init may be called once per process; calling it again aborts some MPIs.
int refuseRestart() {
    int finalized = 0;
    int initialized = 0;
    MPI_Finalized(&finalized);
    MPI_Initialized(&initialized);
    if (finalized) {
        return QMX_MPI_ERR_FINALIZED;
    }
    return initialized ? QMX_MPI_ERR_ALREADY_INITIALIZED : QMX_MPI_SUCCESS;
}

bool mpiRunning() {
    int finalized = 0;
    int initialized = 0;
    MPI_Finalized(&finalized);
    MPI_Initialized(&initialized);
    return initialized && !finalized;
}

// Every failure must come back as a code: the predefined communicators, and files opened
// before any file exists (whose errors go to the handler of MPI_FILE_NULL), return errors.
int makeErrorsReturn() {
    int rc = MPI_Comm_set_errhandler(MPI_COMM_WORLD, MPI_ERRORS_RETURN);
    if (rc == MPI_SUCCESS) {
        rc = MPI_Comm_set_errhandler(MPI_COMM_SELF, MPI_ERRORS_RETURN);
    }
    if (rc == MPI_SUCCESS) {
        rc = MPI_File_set_errhandler(MPI_FILE_NULL, MPI_ERRORS_RETURN);
    }
    return rc;
}

}  // namespace

int Init(int* argc, char*** argv) {
    return guarded([&] {
        if (int rc = refuseRestart()) {
            return rc;
        }
        makeMpiSymbolsGlobal();
        const int rc = MPI_Init(argc, argv);
        return errors.toQmxWithoutMpi(rc == MPI_SUCCESS ? makeErrorsReturn() : rc);
    });
}

// Reports at most QMX_MPI_THREAD_SERIALIZED: the handle tables are not locked.
int Init_thread(int* argc, char*** argv, int required, int* provided) {
    return guarded([&] {
        require(provided != nullptr);
        const int nativeRequired = special::threadLevelToNative(required);
        if (int rc = refuseRestart()) {
            return rc;
        }
        makeMpiSymbolsGlobal();
        int nativeProvided = MPI_THREAD_SINGLE;
        const int rc = MPI_Init_thread(argc, argv, nativeRequired, &nativeProvided);
        if (rc != MPI_SUCCESS) {
            return errors.toQmxWithoutMpi(rc);
        }
        *provided = std::min(special::threadLevelToQmx(nativeProvided), QMX_MPI_THREAD_SERIALIZED);
        return errors.toQmxWithoutMpi(makeErrorsReturn());
    });
}

int Finalize() {
    return guarded([&] {
        int finalized = 0;
        int initialized = 0;
        MPI_Finalized(&finalized);
        MPI_Initialized(&initialized);
        if (finalized) {
            return QMX_MPI_ERR_FINALIZED;
        }
        if (!initialized) {
            return QMX_MPI_ERR_NOT_INITIALIZED;
        }
        return errors.toQmxWithoutMpi(MPI_Finalize());
    });
}

int Initialized(int* flag) {
    return guarded([&] {
        require(flag != nullptr);
        return errors.toQmxWithoutMpi(MPI_Initialized(flag));
    });
}

int Finalized(int* flag) {
    return guarded([&] {
        require(flag != nullptr);
        return errors.toQmxWithoutMpi(MPI_Finalized(flag));
    });
}

// Only MPI's text for the code is given here; while MPI does not run, the front library
// answers with the wrapper's text for the class.
int Error_string(int errorcode, char* string, int* resultlen) {
    return guarded([&] {
        require(string && resultlen);
        if (!mpiRunning()) {
            return QMX_MPI_ERR_NOT_INITIALIZED;
        }
        const int native = errors.toNative(errorcode);
        char text[MPI_MAX_ERROR_STRING];
        int length = 0;
        if (native < 0 || MPI_Error_string(native, text, &length) != MPI_SUCCESS) {
            return QMX_MPI_ERR_ARG;
        }
        return copyText(std::string_view(text, static_cast<std::size_t>(length)), string, resultlen,
                        QMX_MPI_MAX_ERROR_STRING);
    });
}

int Get_version(int* version, int* subversion) {
    return guarded([&] {
        require(version && subversion);
        return errors.toQmxWithoutMpi(MPI_Get_version(version, subversion));
    });
}

int Get_library_version(char* version, int* resultlen) {
    return guarded([&] {
        require(version && resultlen);
        return errors.toQmxWithoutMpi(MPI_Get_library_version(version, resultlen));
    });
}

int Get_mpi_name(char* name, int* resultlen) {
    return guarded(
        [&] { return copyText(distributionName, name, resultlen, QMX_MPI_MAX_MPI_NAME); });
}

int Get_mpi_version(char* version, int* resultlen) {
    return guarded(
        [&] { return copyText(distributionVersion, version, resultlen, QMX_MPI_MAX_MPI_NAME); });
}

int Abort(int comm, int errorcode) {
    return guarded([&] { return qmxCode(MPI_Abort(handles.comms.get(comm), errorcode)); });
}

int Get_processor_name(char* name, int* resultlen) {
    return guarded([&] {
        require(name && resultlen);
        return qmxCode(MPI_Get_processor_name(name, resultlen));
    });
}

double Wtime() {
    return MPI_Wtime();
}

double Wtick() {
    return MPI_Wtick();
}

}  // namespace tolm::mpidriver
