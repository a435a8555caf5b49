#include "machine/core/CommonArgvParser.h"

#include <cstdio>
#include <cstdlib>

#include "machine/core/OptionError.h"
#include "machine/core/OptionValue.h"
#include "machine/core/ParameterInitialValues.h"
#include "machine/remote/RemoteShellFactory.h"
#include "machine/core/RendererConfig.h"
#include "machine/core/RollCall.h"
#include "machine/core/WritableDirectoryOption.h"
#include "neo/InternalError.h"
#include "neo/SignalHandler.h"
#include "neo/SynchronizedDynamicLoader.h"
#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"
#include "platform/SystemErrors.h"

namespace tolm {
namespace {

constexpr bool entered = true;
constexpr bool notEntered = false;

std::string wideRoundTrip(const char* text) {
    return StringHelper::toString(StringHelper::decode(text));
}

}  // namespace

CommonArgvParser::CommonArgvParser(MachineSettings& settings)
    : _settings(settings), _options(makeOptions()) {}

std::vector<CommonArgvParser::Option> CommonArgvParser::makeOptions() {
    const auto flag = [](const char* name, std::function<void()> apply) {
        return Option{name, 0, nullptr, entered, [apply](char**) { apply(); }};
    };
    const auto mapOnly = [](const char* name) {
        return Option{name, 0, nullptr, entered, [](char**) {}};
    };
    const auto designValue = [](const char* name) {
        return Option{name, 1, nullptr, notEntered, [](char**) {}};
    };
    auto& settings = _settings;
    return {
        flag("-deleteOnExit", [&settings] { settings.deleteOnExit = true; }),
        flag("-xnoulm", [&settings] { settings.analyticsOff = true; }),
        flag("-fpe",
             [] {
                 std::printf("Enabling asynchronous floating point exceptions.\n");
                 std::fflush(stdout);
                 SignalHandler::setCatchFpeSignals(true);
             }),
        {"-mpi", 1, "Missing -mpi arg", entered, [](char**) {}},
        {"-mpidriver", 1, "Missing -mpi arg", entered, [](char**) {}},
        designValue("-passtodesign"),
        designValue("-dmprojectid"),
        designValue("-dmprojectid2"),
        designValue("-dmrunfile"),
        mapOnly("-dmnoshare"),
        mapOnly("-time"),
        flag("-nothreads", [&settings] { settings.threaded = false; }),
        flag("-yieldwait", [&settings] { settings.yieldingWaits = true; }),
        {"-module", 1, "Missing -module arg", entered,
         [](char** v) { SynchronizedDynamicLoader::load(v[0]); }},
        {"-xmpiversion", 1, "Missing -xmpiversion arg", entered,
         [&settings](char** v) { settings.mpiVersionName = v[0]; }},
        {"-xmpidriver", 1, "Missing -xmpidriver arg", entered,
         [&settings](char** v) { settings.mpiDistributionName = v[0]; }},
        {"-param", 2, "Missing -param arg arg", entered,
         [](char** v) {
             ParameterInitialValues::getSingleton().addParameterArg(wideRoundTrip(v[0]),
                                                                    wideRoundTrip(v[1]));
         }},
        flag("-pio", [&settings] { settings.parallelIo = true; }),
        {"-rsh", 1, "Missing -rsh arg", entered,
         [](char** v) {
             RemoteShellFactory::getSingleton().setDefaultRemoteProcessLauncher(
                 StringHelper::decode(v[0]));
         }},
        {"-tmpdir", 1, "Missing -tmpdir arg", entered,
         [&settings](char** v) {
             WritableDirectoryOption::require("-tmpdir", v[0]);
             settings.temporaryDirectory = StringHelper::decode(v[0]);
         }},
        // Slaves' standard streams go to per-process logs in the directory (Machine::startConsole).
        {"-slavelogs", 1, "Missing -slavelogs arg", entered,
         [&settings](char** v) {
             if (!Platform::filesystem().createDirectories(v[0]))
                 throw OptionError(std::string("Cannot create the -slavelogs directory ") + v[0] +
                                   ": " + Platform::error().lastErrorText());
             settings.slaveLogDirectory = StringHelper::decode(v[0]);
         }},
        {"-iodebug", 1, "Missing -iodebug arg", entered,
         [&settings](char** v) { settings.ioVerbosity = static_cast<std::uint32_t>(std::atoi(v[0])); }},
        {"-cpubind", 1, "Missing -cpubind arg", entered, [this](char** v) { applyCpuBind(v[0]); }},
        mapOnly("-cpubindverbose"),
        mapOnly("-cpubindextendedverbosity"),
        {"-cpubindcontentiontest", 1, "Missing -cpubindcontentiontest arg", entered,
         [this](char** v) { applyContentionTest(v[0]); }},
        flag("-xnodeverrors", [&settings] { settings.devErrorChecking = false; }),
        flag("-xthreadbindoff",
             [&settings] { settings.threadBindingAttributes |= MachineSettings::ThreadBindingOff; }),
        flag("-xthreadbindverbose",
             [&settings] {
                 settings.threadBindingAttributes |= MachineSettings::ThreadBindingVerbose;
             }),
        flag("-printpids", [&settings] { settings.printPids = true; }),
        {"-jobmanagerurl", 1, "Missing -jobmanagerurl arg", entered,
         [this](char** v) {
             _jobManagerUrlGiven = true;
             _jobManagerUrl = StringHelper::decode(v[0]);
         }},
        {"-taskid", 1, "Missing -taskid arg", entered,
         [this](char** v) { _taskId = std::atoi(v[0]); }},
        {"-rrthreads", 1, "Missing -rrthreads arg", entered,
         [](char** v) { RendererConfig::setNumRenderThreads(std::atoi(v[0])); }},
        {"-rgraphics", 1, "Missing -rgraphics arg", entered,
         [this](char** v) { applyRendererGraphics(v[0]); }},
        {"-hangtimeout", 1, "Missing -hangtimeout arg", entered,
         [](char** v) { RollCall::setHangTimeout(v[0]); }},
        {"-memorymonitor", 1, "Missing -memorymonitor arg", entered,
         [&settings](char** v) {
             settings.memoryMonitorPeriod = OptionValue::seconds("-memorymonitor", v[0]);
         }},
    };
}

const CommonArgvParser::Option* CommonArgvParser::find(const std::string& entry) const {
    for (const auto& option : _options) {
        if (entry == option.name)
            return &option;
    }
    return nullptr;
}

void CommonArgvParser::parse(int argc, char** argv, ArgumentMap& consumed) {
    int i = 1;
    while (i < argc) {
        const Option* option = (argv[i] && *argv[i]) ? find(argv[i]) : nullptr;
        if (!option) {
            ++i;
            continue;
        }
        const bool valuesPresent = i + static_cast<int>(option->values) < argc;
        if (!valuesPresent && !option->entered) {
            ++i;  // a design option with no value: the server reads argv itself
            continue;
        }
        if (!valuesPresent)
            throw OptionError(option->missingMessage);
        option->apply(argv + i + 1);
        if (option->entered)
            consumed[option->name] = 1 + option->values;
        i += 1 + static_cast<int>(option->values);
    }
    if (!_settings.temporaryDirectory)
        _settings.temporaryDirectory = StringHelper::decode(Platform::filesystem().temporaryDirectory());
    finishJobManager();
}

void CommonArgvParser::applyCpuBind(const std::string& value) {
    if (value == "bandwidth") {
        _settings.cpuBindingPolicy = MachineSettings::Bandwidth;
    } else if (value == "latency") {
        _settings.cpuBindingPolicy = MachineSettings::Latency;
    } else if (value == "leastload") {
        _settings.cpuBindingPolicy = MachineSettings::LeastLoad;
    } else if (value == "disable") {
        _settings.useInternalBinding = false;
    } else {
        throw OptionError(
            "-cpubind argument must be latency/leastload/disable (don't specify anything for "
            "bandwidth)");
    }
}

void CommonArgvParser::applyContentionTest(const std::string& value) {
    if (value == "enable") {
        _settings.cpuBindingContentionTest = true;
    } else if (value == "disable") {
        _settings.cpuBindingContentionTest = false;
    } else {
        throw OptionError("-cpubindcontentiontest argument must either be enabled/disable");
    }
}

void CommonArgvParser::applyRendererGraphics(const std::string& value) {
    std::string error;
    RendererConfig::setGraphics(value, error);
    TOLM_ASSERT(error.empty(), "RendererConfig error: " + error);
}

void CommonArgvParser::finishJobManager() {
    if (_jobManagerUrlGiven && _taskId != 0) {
        _settings.jobManagerUrl = _jobManagerUrl;
        _settings.taskId = _taskId;
    } else if (_jobManagerUrlGiven || _taskId != 0) {
        throw OptionError(
            "Both -jobmanagerurl and -taskid must be specified when using Job Manager");
    }
}

}  // namespace tolm
