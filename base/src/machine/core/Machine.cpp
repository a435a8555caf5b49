#include "machine/core/Machine.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "machine/topology/Affinity.h"
#include "machine/commands/CommandController.h"
#include "machine/core/CommonArgvParser.h"
#include "machine/commands/IsolatedFpuContext.h"
#include "machine/comm/CommunicationLocks.h"
#include "machine/comm/Communicator.h"
#include "machine/topology/CpuTopology.h"
#include "machine/topology/CrowdedHostWaits.h"
#include "machine/topology/MachineHost.h"
#include "machine/comm/MpiCore.h"
#include "machine/core/FatalSignals.h"
#include "machine/core/LauncherEnvironment.h"
#include "machine/core/MpiDriverTable.h"
#include "machine/core/OptionError.h"
#include "machine/core/ParallelErrorHandler.h"
#include "machine/core/ScopeCommunicators.h"
#include "machine/core/ServerHost.h"
#include "machine/core/VectorizationCheck.h"
#include "machine/files/StandardStreamManager.h"
#include "machine/monitor/SystemMonitor.h"
#include "machine/monitor/Timer.h"
#include "neo/EventTracker.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "neo/SingletonCleaner.h"
#include "neo/SynchronizedDynamicLoader.h"
#include "neo/TolmVersion.h"
#include "platform/DynamicLibraryLoader.h"
#include "platform/FileSystem.h"
#include "platform/FpuHandling.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "platform/StringHelper.h"
#include "platform/TimeService.h"

namespace tolm {

Machine* Machine::_singleton = nullptr;
Machine::SerialParallelMode Machine::_serialParallelMode = Machine::Serial;
std::uint32_t Machine::_np = 1;
std::uint32_t Machine::_partition = 0;
std::string Machine::_executableName;
std::wstring Machine::_executablePath;
MachineSettings Machine::_settings;
bool Machine::_isProxyServer = false;
bool Machine::_isProxySessionDaemon = false;
std::unique_ptr<Communicator> Machine::_globalComm;
std::unique_ptr<ScopeCommunicators> Machine::_scopeComms;
std::unique_ptr<MachineHost> Machine::_host;
std::unique_ptr<ServerHost> Machine::_serverHost;
std::unique_ptr<SystemMonitor> Machine::_systemMonitor;

namespace {

std::time_t startMoment = 0;

// A name the wrapper reports through `get(buffer, &length)`.
std::string wrapperText(int (*get)(char*, int*)) {
    char buffer[QMX_MPI_MAX_MPI_NAME] = {};
    int length = 0;
    MpiCore::handleError(get(buffer, &length));
    return std::string(buffer, std::size_t(length));
}

}  // namespace

Machine::Machine() : _onExitObservable(std::make_unique<OnExitObservable>()) {}

Machine::~Machine() = default;

Machine& Machine::getSingleton() {
    if (!_singleton)
        _singleton = new Machine();
    return *_singleton;
}

void Machine::setServerHost(std::unique_ptr<ServerHost> serverHost) {
    _serverHost = std::move(serverHost);
}

ExitStatus Machine::main(int argc, char** argv) {
    FpuHandling::resetEnvironment();
    startMoment = std::time(nullptr);
    ArgumentMap consumed;
    Machine& machine = getSingleton();

    startCommunicators(argc, argv, consumed);
    parseCommonArgvs(argc, argv, consumed);
    if (isParallel())
        FatalSignals::install(_partition);
    if (_settings.printPids) printProcessId();
    installTerminateHandler();
    bindProcessors(consumed);
    if (!isSerial())
        buildShmemCommunicators();
    VectorizationCheck::run();
    SynchronizedDynamicLoader::nonStateLoad("TolmScene");
    startParallelErrorHandler();
    machine._runTimer = std::make_unique<Timer>();
    machine._runTimer->start();
    if (hasSystemMonitor())
        _systemMonitor->start();
    installWorkerErrorHandler();
    recordDesignFlags(argc, argv);
    startConsole();
    dispatchRole(argc, argv, consumed);
    takeDown();
    return machine.getExitStatus();
}

void Machine::startCommunicators(int argc, char** argv, ArgumentMap& consumed) {
    bool serial = false;
    for (int i = 0; i < argc; ++i) {
        if (!argv[i])
            continue;
        const std::string entry = argv[i];
        if (entry != "-s" && entry != "-proxyserver" && entry != "-proxydaemon")
            continue;
        consumed[entry] = 1;
        serial = true;
        if (entry == "-proxyserver")
            _isProxyServer = true;
        if (entry == "-proxydaemon")
            _isProxySessionDaemon = true;
    }
    if (serial) {
        _serialParallelMode = Serial;
        startHost();
        TolmVersion::_machineConfig = "Serial";
        return;
    }
    startMpi(argc, argv, consumed);
    _globalComm = std::make_unique<Communicator>();
    _np = _globalComm->size();
    LauncherEnvironment::refuseMismatch(_np);
    _partition = _globalComm->myRank();
    _serialParallelMode = _partition == 0 ? Master : Slave;
    startHost();
    TolmVersion::_machineConfig = "Np=" + std::to_string(_np);
}

void Machine::startMpi(int argc, char** argv, ArgumentMap& consumed) {
    const std::string library = MpiDriverTable::libraryFromArguments(argc, argv, consumed);
    // The driver keeps its own MPI library's symbols to itself; it makes them global
    // itself where its MPI needs that.
    std::string loaderText;
    void* handle =
        Platform::dynamiclibrary().load(library, DynamicLibraryLoader::Symbols::Local, loaderText);
    const int initialized = QMX_MPI_Initialize(handle);
    if (initialized != QMX_MPI_SUCCESS) {
        const std::string reason = handle ? MpiCore::errorString(initialized) : loaderText;
        throw InternalError("Failed to initialize MPI wrapper: " + reason,
                            "QMX_MPI_Initialize(handle) == QMX_MPI_SUCCESS", __FILE__, __LINE__);
    }
    TOLM_ASSERT(QMX_MPIO_Initialize(handle) == QMX_MPI_SUCCESS,
                "Failed to initialize MPIO wrapper");
    const IsolatedFpuContext mpiLibrary;  // the MPI library's own floating-point flags
    if (QMX_MPI_Init(&argc, &argv) != QMX_MPI_SUCCESS) {
        throw NonRecoverableError("MPI failed to initialize");
    }
    MpiCore::setDistribName(wrapperText(QMX_MPI_Get_mpi_name));
    MpiCore::setMpiVersionName(wrapperText(QMX_MPI_Get_mpi_version));
}

void Machine::parseCommonArgvs(int argc, char** argv, ArgumentMap& consumed) {
    recordExecutableLocation();
    CommonArgvParser(_settings).parse(argc, argv, consumed);
    applySettings();
}

void Machine::applySettings() {
    CommunicationLocks::setDevelopmentChecks(_settings.devErrorChecking);
    if (_settings.memoryMonitorPeriod)
        enableSystemMonitor(true, *_settings.memoryMonitorPeriod);
    if (!isParallel())
        return;
    if (_settings.yieldingWaits)
        MpiCore::setYieldingWaits(true);
    if (_settings.mpiDistributionName)
        MpiCore::setDistribName(*_settings.mpiDistributionName);
    if (_settings.mpiVersionName)
        MpiCore::setMpiVersionName(*_settings.mpiVersionName);
}

void Machine::recordExecutableLocation() {
    const std::string path = Platform::filesystem().executablePath();
    const auto cut = path.rfind(FileSystem::separator);
    _executablePath = StringHelper::decode(cut == std::string::npos ? "" : path.substr(0, cut));
    _executableName = cut == std::string::npos ? path : path.substr(cut + 1);
}

void Machine::printProcessId() {
    const std::string host = Platform::process().hostName();
    std::fprintf(stderr, "Rank %u: process %d on %s\n", _partition, Platform::process().pid(),
                 host.c_str());
    std::fflush(stderr);
}

void Machine::startHost() {
    // hwloc and the MPI library raise floating-point flags of their own while the host map
    // is built; they are not the solver's, and must not surface at its first check.
    const IsolatedFpuContext libraries;
    _host = CrowdedHostWaits::buildHostMap();
}

MachineHost& Machine::getHost() {
    TOLM_ASSERT(_host, "Host is not enabled");
    return *_host;
}

void Machine::bindProcessors(const ArgumentMap& consumed) {
    TOLM_ASSERT(_host, "Host is not enabled");
    const IsolatedFpuContext libraries;  // hwloc's floating-point flags, as in startHost
    const bool verbose = consumed.contains("-cpubindverbose");
    const bool extended = consumed.contains("-cpubindextendedverbosity");
    if (_settings.useInternalBinding) {
        _host->bindProcesses();
        testForCpuBindingCollisions(verbose || extended);
    } else {
        conformProcessAffinityToMainThreadAffinity();
    }
    // Also where the machine does not bind: the report then shows where the launcher did.
    _host->printProcessAffinitySummary(verbose, extended);
}

bool Machine::conformProcessAffinityToMainThreadAffinity() {
    const CpuTopology& topology = getHost().getCpuTopology();
    const AffinityMask mainThread = Affinity::getThreadAffinity(topology);
    return Affinity::getProcessAffinity(topology) == mainThread ||
           Affinity::setProcessAffinity(topology, mainThread);
}

bool Machine::testForCpuBindingCollisions(bool verbose) {
    MachineHost& host = getHost();
    bool found = false;
    if (isParallel() && !MpiCore::disableCpuBindingCollisionTest())
        found = host.releaseCollidingProcesses();
    if (_settings.cpuBindingContentionTest && host.hasCpuContention(verbose)) {
        host.resolveCpuContention(verbose);
        found = true;
    }
    return found;
}

void Machine::recordDesignFlags(int argc, char** argv) {
    Machine& machine = getSingleton();
    for (int i = 1; i < argc; ++i) {
        if (!argv[i])
            continue;
        const std::string entry = argv[i];
        if (entry == "-dmproject") {
            machine._designManager = true;
            return;
        }
        if (entry == "-dmrunfile") {
            machine._designStudy = true;
            return;
        }
    }
}

void Machine::dispatchRole(int argc, char** argv, const ArgumentMap& consumed) {
    // Proxy servers and session daemons run the same server host: the server asks
    // isProxyServer() / isProxySessionDaemon() to tell its role.
    CommandController& commands = CommandController::getSingleton();  // collective
    if (isSerial() || isMaster()) {
        startServerHost(argc, argv, consumed);
        // However the server ended, the slaves must leave their loop.
        commands.releaseSlaves();
    } else {
        commands.processCommands();
    }
}

void Machine::startServerHost(int argc, char** argv, const ArgumentMap& consumed) {
    TOLM_ASSERT(_serverHost, "No server host was set before Machine::main");
    getSingleton().updateExitStatus(_serverHost->run(argc, argv, consumed));
}

void Machine::takeDown() {
    getSingleton()._onExitObservable->notify();
    stopParallelErrorHandler();
    _systemMonitor.reset();  // its thread asks the host map, which goes below
    CommandController::reset();
    EventTracker::reset();
    SingletonCleaner::reset();
    getSingleton()._runTimer->stop();
    stopCommunicators();
    stopConsole();
}

const Timer& Machine::getRunTimer() const {
    TOLM_ASSERT(_runTimer, "The run timer has not been started");
    return *_runTimer;
}

void Machine::stopCommunicators() {
    _host.reset();
    if (isSerial())
        return;
    _scopeComms.reset();
    _globalComm.reset();
    MpiCore::finalize();
}

void Machine::startConsole() {
    Machine& machine = getSingleton();
    const auto& logs = _settings.slaveLogDirectory;
    machine._standardStreamManager = std::make_unique<StandardStreamManager>(
        logs ? *logs : machine.getTemporaryDirectory(), logs.has_value());
    if (logs && _serialParallelMode == Slave)
        machine._standardStreamManager->redirectOriginalStreamsToFile();
}

void Machine::stopConsole() {
    std::fflush(stdout);
    getSingleton()._standardStreamManager.reset();
}

StandardStreamManager& Machine::getStandardStreamManager() {
    TOLM_ASSERT(_standardStreamManager, "StandardStreamManager is NULL");
    return *_standardStreamManager;
}

void Machine::buildShmemCommunicators() {
    TOLM_ASSERT(_host, "host not built yet");
    _scopeComms = std::make_unique<ScopeCommunicators>(*globalCommunicator(), *_host);
}

Communicator& Machine::sharedMemCommunicator(ShmemScope scope) {
    TOLM_ASSERT(isParallel(), "Attempt to access sharedMemCommunicator in serial");
    TOLM_ASSERT(_scopeComms, "Shared-memory communicators have not been built");
    return _scopeComms->sharedMemory(scope);
}

Communicator* Machine::hasSparseCommunicator(ShmemScope scope) {
    TOLM_ASSERT(isParallel(), "Attempt to access sparse communicator in serial");
    return _scopeComms ? _scopeComms->sparse(scope) : nullptr;
}

Communicator* Machine::globalCommunicator() {
    TOLM_ASSERT(isParallel(), "Attempt to access GlobalCommunicator in serial");
    return _globalComm.get();
}

void Machine::enableSystemMonitor(bool enable, float samplingPeriod) {
    if (!enable) {
        _systemMonitor.reset();
        return;
    }
    if (!_systemMonitor)
        _systemMonitor = std::make_unique<SystemMonitor>();
    unsigned int milliseconds = SystemMonitor::defaultYieldTime;
    if (std::isfinite(samplingPeriod) && samplingPeriod > 0.0f)
        milliseconds = unsigned(std::clamp(std::round(samplingPeriod * 1000.0), 1.0, 3.6e6));
    _systemMonitor->setYieldTime(milliseconds);
}

SystemMonitor& Machine::getSystemMonitor() {
    TOLM_ASSERT(hasSystemMonitor(), "The system monitor has not been enabled");
    return *_systemMonitor;
}

const std::wstring& Machine::getTemporaryDirectory() const {
    static const std::wstring none;
    return _settings.temporaryDirectory ? *_settings.temporaryDirectory : none;
}

void Machine::setDevErrorChecking(bool check) {
    _settings.devErrorChecking = check;
    CommunicationLocks::setDevelopmentChecks(check);
}

std::string Machine::getStateString(NodeState state) {
    switch (state) {
        case AwaitingCommand:
            return "Awaiting command";
        case GatheringResponse:
            return "Gathering response";
        case HandlingError:
            return "Handling error";
        case Processing:
            return "Processing";
        default:
            return "Unknown";
    }
}

Machine::OnExitObservable& Machine::getOnExitObservable() {
    return *_onExitObservable;
}

std::string Machine::getTime() {
    return Platform::time().localTimeText(std::time(nullptr));
}

std::string Machine::getStartTime() {
    return Platform::time().localTimeText(startMoment ? startMoment : std::time(nullptr));
}

std::uint32_t Machine::getPerformanceCriticalLock() {
    return CommunicationLocks::performanceCritical();
}

std::uint32_t Machine::getSerialCriticalLock() {
    return CommunicationLocks::serialCritical();
}

double Machine::wallTime() {
    return isParallel() ? QMX_MPI_Wtime() : Platform::time().wallSeconds();
}

void Machine::reset() {
    _systemMonitor.reset();  // before the singleton it observes
    delete _singleton;
    _singleton = nullptr;
    _serialParallelMode = Serial;
    _np = 1;
    _partition = 0;
    _executableName.clear();
    _executablePath.clear();
    _settings = {};
    _isProxyServer = false;
    _isProxySessionDaemon = false;
    CommunicationLocks::reset();
    _host.reset();
}

}  // namespace tolm
