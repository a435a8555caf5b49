#include "platform/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "platform/Pipe.h"
#include "platform/Platform.h"
#include "platform/SystemErrors.h"

extern char** environ;

namespace tolm::OS {
namespace {

// The start-up recipe of one child: its descriptors and its signal state.
class SpawnSetup {
public:
    explicit SpawnSetup(const Pipe* output) {
        ::posix_spawn_file_actions_init(&_actions);
        ::posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (output) {
            ::posix_spawn_file_actions_adddup2(&_actions, output->writeDescriptor(), STDOUT_FILENO);
            ::posix_spawn_file_actions_adddup2(&_actions, output->writeDescriptor(), STDERR_FILENO);
        }
        ::posix_spawnattr_init(&_attributes);
        sigset_t signals;
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&_attributes, &signals);
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&_attributes, &signals);
        ::posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnSetup() {
        ::posix_spawnattr_destroy(&_attributes);
        ::posix_spawn_file_actions_destroy(&_actions);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    // 0, or the error number of the failed start.
    int spawn(const std::vector<std::string>& arguments, pid_t& pid) const {
        std::vector<char*> argv;
        for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        return ::posix_spawnp(&pid, argv[0], &_actions, &_attributes, argv.data(), environ);
    }

private:
    posix_spawn_file_actions_t _actions;
    posix_spawnattr_t _attributes;
};

// 0, or the error number that refuses the start before the system is asked.
int startable(const std::vector<std::string>& arguments, const Pipe* output) {
    if (arguments.empty()) return ENOENT;
    if (output && output->writeDescriptor() < 0) return EBADF;
    return 0;
}

int exitStatusOf(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

}  // namespace

Process::ProcessHandle::~ProcessHandle() {
    if (reap(false)) return;
    ::kill(_pid, SIGKILL);
    reap(true);
}

bool Process::ProcessHandle::reap(bool block) {
    if (_status) return true;
    int waitStatus = 0;
    pid_t result;
    do {
        result = ::waitpid(_pid, &waitStatus, block ? 0 : WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == 0) return false;
    _status = result == _pid ? exitStatusOf(waitStatus) : -1;
    return true;
}

int Process::ProcessHandle::wait() {
    reap(true);
    return *_status;
}

std::optional<int> Process::ProcessHandle::waitFor(std::chrono::duration<double> timeout) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    auto pause = std::chrono::milliseconds(1);
    while (!reap(false)) {
        if (Clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(20));
    }
    return _status;
}

std::unique_ptr<Process::ProcessHandle> Process::spawn(const std::vector<std::string>& arguments,
                                                       Pipe* output, std::string& error) {
    int code = startable(arguments, output);
    pid_t pid = -1;
    if (!code) code = SpawnSetup(output).spawn(arguments, pid);
    if (output) output->closeWriteEnd();
    if (code == 0) return std::make_unique<ProcessHandle>(pid);
    const std::string program = arguments.empty() ? "" : arguments[0];
    error = "Cannot start \"" + program + "\": " + Platform::error().text(code);
    return nullptr;
}

}  // namespace tolm::OS
