#pragma once
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "machine/comm/ShmemScope.h"
#include "machine/core/ExitStatus.h"
#include "machine/core/MachineSettings.h"
#include "neo/Subject.h"

namespace tolm {

class Communicator;
class Error;
class MachineHost;
class ParallelErrorHandler;
class ScopeCommunicators;
class ServerHost;
class StandardStreamManager;
class SystemMonitor;
class Timer;

// The one object that turns the processes of a job into a parallel machine: a master (rank 0)
// and slaves, or one serial process. Every server process enters through `main`, which starts
// the machine, runs the server (or, on a slave, the command loop) and takes everything down
// again. Nearly all state is static and written only during start-up on the main thread, so
// the rest of the system reads it through static queries without locks.
//
// Errors: option errors are OptionError (their text is the user's message); broken
// preconditions are InternalError; failures that must end the job are NonRecoverableError.
class Machine {
  public:
    enum SerialParallelMode { Serial = 0, Master = 1, Slave = 2 };
    enum NodeState : int {
        Unknown = -1,
        AwaitingCommand = 0,
        GatheringResponse = 1,
        HandlingError = 2,
        Processing = 3,
    };
    enum class ServerType { Solver, Proxy, SessionDaemon };
    using CpuBindingPolicy = MachineSettings::CpuBindingPolicy;
    static constexpr CpuBindingPolicy Bandwidth = MachineSettings::Bandwidth;
    static constexpr CpuBindingPolicy Latency = MachineSettings::Latency;
    static constexpr CpuBindingPolicy LeastLoad = MachineSettings::LeastLoad;
    using ShmemScope = tolm::ShmemScope;
    static constexpr ShmemScope NUMA_SCOPE = tolm::NUMA_SCOPE;
    static constexpr ShmemScope SOCKET_SCOPE = tolm::SOCKET_SCOPE;
    static constexpr ShmemScope HOST_SCOPE = tolm::HOST_SCOPE;
    static constexpr std::uint32_t ThreadBindingOff = MachineSettings::ThreadBindingOff;
    static constexpr std::uint32_t ThreadBindingVerbose = MachineSettings::ThreadBindingVerbose;
    using ArgumentMap = tolm::ArgumentMap;

    class ParallelPerformanceCritical;
    class SerialCritical;
    class OnExitObservable;

    static Machine& getSingleton();
    ~Machine();

    // Starts the machine, runs the server or the command loop, takes everything down.
    static ExitStatus main(int argc, char** argv);
    static void setServerHost(std::unique_ptr<ServerHost> serverHost);

    // Role.
    static bool isSerial() { return _serialParallelMode == Serial; }
    static bool isParallel() { return _serialParallelMode > Serial; }
    static bool isMaster() { return _serialParallelMode == Master; }
    static bool isProxyServer() { return _isProxyServer; }
    static bool isProxySessionDaemon() { return _isProxySessionDaemon; }
    static std::uint32_t nProcesses() { return _np; }
    static std::uint32_t getPartitionId() { return _partition; }
    // The communicator over all processes; InternalError in a serial run.
    static Communicator* globalCommunicator();

    // Start-up steps, also callable on their own (tests, tools).
    static void startCommunicators(int argc, char** argv, ArgumentMap& consumed);
    static void parseCommonArgvs(int argc, char** argv, ArgumentMap& consumed);
    // Start-up step 6 of a parallel run: the communicators of every shared-memory scope
    // (ScopeCommunicators). Collective over the global communicator; InternalError "host not
    // built yet" before the host map exists.
    static void buildShmemCommunicators();
    // Take-down of what startCommunicators and buildShmemCommunicators built: the host map,
    // the scope communicators, the global communicator, then MPI.
    static void stopCommunicators();
    // Where this process's standard output and error go for the rest of the run: a slave of a
    // run given "-slavelogs DIR" sends both to its log files in DIR; every other process, and
    // every slave of a run without the option, keeps them where the launcher put them.
    static void startConsole();
    // Flushes standard output and destroys the stream manager, dropping its redirections.
    static void stopConsole();
    // InternalError "StandardStreamManager is NULL" outside startConsole..stopConsole.
    StandardStreamManager& getStandardStreamManager();
    // The processes that share memory with this one within `scope`; InternalError in serial.
    static Communicator& sharedMemCommunicator(ShmemScope scope);
    // The first process of every shared-memory group of `scope`, on those processes; null on
    // the others. InternalError in serial.
    static Communicator* hasSparseCommunicator(ShmemScope scope);

    // Hosts and binding. The host map; InternalError "Host is not enabled" before it is built.
    static MachineHost& getHost();
    // Whether worker threads are bound ("-xthreadbindoff" turns it off) and report their
    // binding ("-xthreadbindverbose").
    static bool bindThreads() { return !(_settings.threadBindingAttributes & ThreadBindingOff); }
    static bool enableThreadBindingVerbosity() {
        return (_settings.threadBindingAttributes & ThreadBindingVerbose) != 0;
    }
    // Lets every thread of the process run where the main thread may: a launcher that binds
    // only the main thread leaves threads started before unbound. Call on the main thread.
    static bool conformProcessAffinityToMainThreadAffinity();
    // Releases processes of a host pinned to overlapping LPUs (unless the environment turns
    // the test off, see qmx_mpi.h), then, when the contention test is on, moves processes off
    // LPUs that other jobs of this server hold. True when either was found. Collective.
    static bool testForCpuBindingCollisions(bool verbose);

    // Settings of the run, from the common options (MachineSettings).
    static const MachineSettings& settings() { return _settings; }
    static const std::string& getExecutableName() { return _executableName; }
    static const std::wstring& getExecutablePath() { return _executablePath; }
    static bool isThreaded() { return _settings.threaded; }
    static bool useInternalBinding() { return _settings.useInternalBinding; }
    static CpuBindingPolicy getCpuBindingPolicy() { return _settings.cpuBindingPolicy; }
    static bool isCpuBindingContentionTestEnabled() { return _settings.cpuBindingContentionTest; }
    static void enableCpuBindingContentionTest(bool enable) {
        _settings.cpuBindingContentionTest = enable;
    }
    static std::uint32_t getThreadBindingAttributes() { return _settings.threadBindingAttributes; }
    static int getIOVerbosityLevel() { return static_cast<int>(_settings.ioVerbosity); }
    static void setIOVerbosityLevel(int level) {
        _settings.ioVerbosity = static_cast<std::uint32_t>(level);
    }
    static bool getPrintpids() { return _settings.printPids; }
    const std::wstring& getTemporaryDirectory() const;
    void setTemporaryDirectory(const std::wstring& directory) {
        _settings.temporaryDirectory = directory;
    }
    bool hasTemporaryDirectory() const { return _settings.temporaryDirectory.has_value(); }
    const std::wstring& getJobManagerURL() const { return _settings.jobManagerUrl; }
    int getTaskId() const { return _settings.taskId; }
    bool isParallelIo() const { return _settings.parallelIo; }
    void setParallelIo(bool parallelIo) { _settings.parallelIo = parallelIo; }
    bool hasDevErrorChecking() const { return _settings.devErrorChecking; }
    void setDevErrorChecking(bool check);
    bool isDeleteOnExit() const { return _settings.deleteOnExit; }
    void setDeleteOnExit(bool deleteOnExit) { _settings.deleteOnExit = deleteOnExit; }
    bool isAnalyticsOff() const { return _settings.analyticsOff; }
    void setAnalyticsOff(bool off) { _settings.analyticsOff = off; }
    bool isDesignStudy() const { return _designStudy; }
    bool isDesignManager() const { return _designManager; }
    ServerType getServerType() const { return _serverType; }
    void setServerType(ServerType type) { _serverType = type; }

    // Node state, as command processing moves through a command.
    NodeState getState() const { return _nodeState; }
    void setState(NodeState state) { _nodeState = state; }
    static std::string getStateString(NodeState state);

    // Exit status of the run; its integer value becomes the process exit code.
    const ExitStatus& getExitStatus() const { return _exitStatus; }
    void updateExitStatus(const ExitStatus& status) { _exitStatus += status; }

    // Ends the job with `status` added to the run's status. Never returns.
    [[noreturn]] static void abort(const ExitStatus& status);
    // An error raised on this process: a non-recoverable one (not collective, and on the
    // master only from the main thread) is printed and ends the job with code 32.
    static void handleParallelError(const Error& error);
    ParallelErrorHandler* getParallelErrorHandler() const { return _parallelErrorHandler.get(); }
    static void stopParallelErrorHandler();
    static void installTerminateHandler();
    static void uninstallTerminateHandler();
    OnExitObservable& getOnExitObservable();

    // The memory monitor ("-memorymonitor SECONDS"). `enable` creates the monitor, sampling
    // every `samplingPeriod` seconds (rounded to whole milliseconds, at least one; a period
    // that is not a positive number means the default, 0.02 s), or, when false, stops and
    // destroys it. `main` starts a monitor enabled during start-up; one enabled later is
    // started by its caller. getSystemMonitor: InternalError "The system monitor has not been
    // enabled" unless hasSystemMonitor().
    static void enableSystemMonitor(bool enable, float samplingPeriod);
    static SystemMonitor& getSystemMonitor();
    static bool hasSystemMonitor() { return _systemMonitor != nullptr; }

    // The run timer: runs from the start of the error handler (start-up) to the take-down;
    // after `main` it holds the run's times (its statistics need the job's communicator, so
    // ask them before the take-down). InternalError "The run timer has not been started"
    // before start-up.
    const Timer& getRunTimer() const;

    // Clock.
    static std::string getTime();
    static std::string getStartTime();
    static double wallTime();

    // Critical-section checks; see ParallelPerformanceCritical and SerialCritical.
    static void assertNotParallelPerformanceCritical(const char* where);
    static void assertNotSerialCritical(const char* where);
    static std::uint32_t getPerformanceCriticalLock();
    static std::uint32_t getSerialCriticalLock();

    // Returns every static to its initial value and destroys the singleton. For tests and
    // tools that start the machine more than once in one process.
    static void reset();

  private:
    friend class ParallelErrorHandler;

    Machine();
    static void startMpi(int argc, char** argv, ArgumentMap& consumed);
    static void startHost();
    // What the parsed settings configure elsewhere: the memory monitor, the MPI names, the
    // development checks of communication.
    static void applySettings();
    // Start-up step 5: binds the processes and reports the binding (options in `consumed`).
    static void bindProcessors(const ArgumentMap& consumed);
    static void recordDesignFlags(int argc, char** argv);
    static void dispatchRole(int argc, char** argv, const ArgumentMap& consumed);
    static void startServerHost(int argc, char** argv, const ArgumentMap& consumed);
    static void takeDown();
    // "-printpids": each process names its rank, process id and host on standard error.
    static void printProcessId();
    static void startParallelErrorHandler();
    static void installWorkerErrorHandler();
    // Prints a non-recoverable error and ends the job with code 32.
    [[noreturn]] static void endJobWith(const Error& error);
    // Ends the job with the run's status, through MPI in a parallel run.
    [[noreturn]] static void endJob();
    static void recordExecutableLocation();

    static Machine* _singleton;
    static SerialParallelMode _serialParallelMode;
    static std::uint32_t _np;
    static std::uint32_t _partition;
    static std::string _executableName;
    static std::wstring _executablePath;
    static MachineSettings _settings;
    static bool _isProxyServer;
    static bool _isProxySessionDaemon;
    static std::unique_ptr<Communicator> _globalComm;
    static std::unique_ptr<ScopeCommunicators> _scopeComms;
    static std::unique_ptr<MachineHost> _host;
    static std::unique_ptr<ServerHost> _serverHost;
    static std::unique_ptr<SystemMonitor> _systemMonitor;

    std::unique_ptr<ParallelErrorHandler> _parallelErrorHandler;
    std::unique_ptr<Timer> _runTimer;
    ExitStatus _exitStatus;
    std::unique_ptr<StandardStreamManager> _standardStreamManager;
    std::unique_ptr<OnExitObservable> _onExitObservable;
    bool _designStudy = false;
    bool _designManager = false;
    std::atomic<NodeState> _nodeState{Unknown};  // also read by the roll-call's watchdog
    ServerType _serverType = ServerType::Solver;
};

// Told once when the run ends, before the machine is taken down.
class Machine::OnExitObservable : public TypedSubject<> {};

}  // namespace tolm
