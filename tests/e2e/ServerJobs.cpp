#include "ServerJobs.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
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

std::vector<Properties> responses(const std::string& out) {
    std::vector<Properties> parsed;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() == '{')
            parsed.emplace_back(line);
    }
    return parsed;
}

}  // namespace tolm::test
