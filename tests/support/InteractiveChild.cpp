#include "support/InteractiveChild.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "support/ChildRun.h"

namespace tolm::test {
namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

InteractiveChild::InteractiveChild(const std::vector<std::string>& arguments)
    : _errorFile(makeTemporaryDirectory() + "/stderr") {
    int toChild[2], fromChild[2];
    if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0)
        throw std::runtime_error("pipe failed");
    _pid = ::fork();
    if (_pid < 0)
        throw std::runtime_error("fork failed");
    if (_pid == 0) {
        const int err = ::open(_errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(toChild[0], 0);
        ::dup2(fromChild[1], 1);
        ::dup2(err, 2);
        ::close(toChild[1]);
        ::close(fromChild[0]);
        std::vector<char*> argv;
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    _input = toChild[1];
    _output = fromChild[0];
    ::signal(SIGPIPE, SIG_IGN);
}

InteractiveChild::~InteractiveChild() {
    if (waitForExit(0) == -1) {
        ::kill(_pid, SIGKILL);
        waitForExit(10);
    }
    closeInput();
    if (_output >= 0)
        ::close(_output);
}

void InteractiveChild::writeLine(const std::string& line) {
    const std::string text = line + "\n";
    if (::write(_input, text.data(), text.size()) != ssize_t(text.size())) {
        throw std::runtime_error("cannot write to the child");
    }
}

void InteractiveChild::closeInput() {
    if (_input >= 0)
        ::close(_input);
    _input = -1;
}

bool InteractiveChild::readLine(std::string& line, double timeoutSeconds) {
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        const auto end = _pending.find('\n');
        if (end != std::string::npos) {
            line = _pending.substr(0, end);
            _pending.erase(0, end + 1);
            return true;
        }
        const double left = timeoutSeconds - secondsSince(start);
        if (left <= 0)
            return false;
        pollfd ready{_output, POLLIN, 0};
        if (::poll(&ready, 1, int(left * 1000) + 1) <= 0)
            continue;
        char buffer[4096];
        const ssize_t count = ::read(_output, buffer, sizeof(buffer));
        if (count <= 0)
            return false;
        _pending.append(buffer, std::size_t(count));
    }
}

int InteractiveChild::waitForExit(double timeoutSeconds) {
    const auto start = std::chrono::steady_clock::now();
    while (!_ended) {
        int status = 0;
        if (::waitpid(_pid, &status, WNOHANG) == _pid) {
            _ended = true;
            _exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            break;
        }
        if (secondsSince(start) >= timeoutSeconds)
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return _exitCode;
}

std::string InteractiveChild::standardError() const {
    return readTextFile(_errorFile);
}

}  // namespace tolm::test
