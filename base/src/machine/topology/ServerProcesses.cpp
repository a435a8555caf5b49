#include "machine/topology/ServerProcesses.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace tolm {
namespace {

namespace fs = std::filesystem;

// The target of a /proc link, or "" when it cannot be read.
std::string linkTarget(const fs::path& link) {
    std::error_code error;
    const fs::path target = fs::read_symlink(link, error);
    return error ? std::string() : target.string();
}

bool isProcessDirectory(const fs::directory_entry& entry) {
    const std::string name = entry.path().filename().string();
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c); });
}

}  // namespace

std::vector<unsigned> ServerProcesses::find(const std::string& executableName) {
    const std::string ownNamespace = linkTarget("/proc/self/ns/uts");
    std::vector<unsigned> pids;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        if (!isProcessDirectory(entry))
            continue;
        const std::string executable = linkTarget(entry.path() / "exe");
        if (executable.empty() || fs::path(executable).filename() != executableName)
            continue;
        if (linkTarget(entry.path() / "ns" / "uts") != ownNamespace)
            continue;
        pids.push_back(static_cast<unsigned>(std::stoul(entry.path().filename().string())));
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::string ServerProcesses::ownExecutableName() {
    return fs::path(linkTarget("/proc/self/exe")).filename().string();
}

}  // namespace tolm
