#include "support/ChildRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tolm::test {
namespace {

[[noreturn]] void execChild(const std::vector<std::string>& arguments, const std::string& dir) {
    const int in = ::open((dir + "/in").c_str(), O_RDONLY);
    const int out = ::open((dir + "/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open((dir + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || out < 0 || err < 0)
        ::_exit(126);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    std::vector<char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
}

int waitWithTimeout(pid_t child, int timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

std::string makeTemporaryDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/tolm-test-XXXXXX";
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed for " + pattern);
    return pattern;
}

std::string readTextFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::map<std::string, std::string> readKeyValueFile(const std::string& path) {
    std::map<std::string, std::string> values;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const auto equals = line.find('=');
        if (equals != std::string::npos)
            values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return values;
}

void writeTextFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

ChildResult runChild(const std::vector<std::string>& arguments, const std::string& input,
                     int timeoutSeconds) {
    // Files rather than pipes: the child can write any amount without waiting for a reader.
    const std::string dir = makeTemporaryDirectory();
    writeTextFile(dir + "/in", input);
    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0)
        execChild(arguments, dir);
    ChildResult result;
    result.exitCode = waitWithTimeout(child, timeoutSeconds);
    result.out = readTextFile(dir + "/out");
    result.err = readTextFile(dir + "/err");
    for (const char* name : {"/in", "/out", "/err"})
        ::unlink((dir + name).c_str());
    ::rmdir(dir.c_str());
    return result;
}

}  // namespace tolm::test
