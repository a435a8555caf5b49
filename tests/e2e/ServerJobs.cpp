#include "ServerJobs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <sstream>

#include "platform/StringHelper.h"

namespace tolm::test {

const Launcher openMpi{TOLM_OPENMPI_LAUNCH, TOLM_OPENMPI_ENVIRONMENT};
const Launcher mpich{TOLM_MPICH_LAUNCH, TOLM_MPICH_ENVIRONMENT};

void PrintTo(const Job& job, std::ostream* out) {
    *out << job.driver << " on " << job.ranks;
}

std::string jobName(const Job& job) {
    return std::string(job.driver) + "_np" + std::to_string(job.ranks);
}

std::vector<std::string> jobCommand(const Job& job,
                                    const std::vector<std::string>& serverArguments) {
    for (const auto& setting : StringHelper::split(job.launcher.environment, ' ')) {
        if (!setting.empty())
            ::putenv(::strdup(setting.c_str()));
    }
    std::vector<std::string> command = StringHelper::split(job.launcher.command, ' ');
    command.insert(command.end(),
                   {"-n", std::to_string(job.ranks), TOLM_SERVER_PATH, "-mpi", job.driver});
    command.insert(command.end(), serverArguments.begin(), serverArguments.end());
    return command;
}

ChildResult runJob(const Job& job, const std::vector<std::string>& serverArguments,
                   const std::string& input) {
    return runChild(jobCommand(job, serverArguments), input, 60);
}

ChildResult runOnSimulatedHosts(Job job, int ranks,
                                const std::vector<std::string>& serverArguments) {
    job.ranks = ranks;
    std::vector<std::string> command = jobCommand(job, serverArguments);
    command.insert(std::find(command.begin(), command.end(), TOLM_SERVER_PATH),
                   {TOLM_SIMULATED_HOSTS_SCRIPT, "--as-rank"});
    command.insert(command.begin(), TOLM_SIMULATED_HOSTS_SCRIPT);
    return runChild(command, "", 60);
}

bool unshareAllowed() {
    static const bool allowed = runChild({"unshare", "--uts", "true"}).exitCode == 0;
    return allowed;
}

std::vector<Properties> responses(const std::string& out) {
    std::vector<Properties> parsed;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() == '{')
            parsed.emplace_back(line);
    }
    return parsed;
}

std::map<unsigned, ReportedBinding> reportedBindings(const std::string& out) {
    static const std::regex line(R"((^|\n)\[([^:\]]+):\d+\] rank (\d+) )"
                                 R"((bound to LPU \d+|not bound, runs on LPUs? [0-9,-]+): )");
    std::map<unsigned, ReportedBinding> bindings;
    for (std::sregex_iterator match(out.begin(), out.end(), line), end; match != end; ++match)
        bindings[std::stoul((*match)[3])] = {(*match)[2], (*match)[4]};
    return bindings;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

}  // namespace tolm::test
