#pragma once
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tolm {
class Pipe;
}

namespace tolm::OS {

// Starts programs straight from an argument vector: no shell stands in between, so every
// argument reaches the program exactly as given, blanks and shell characters included.
//
// Children start with standard input on the null device (a child never competes with this
// process for its input), default signal dispositions and an empty signal mask. They inherit
// standard output and error, or write both into a `Pipe` when one is given.
class Process {
public:
    // Owner of one started child. The exit status is the child's exit code, or 128 plus the
    // signal number when a signal ended it.
    class ProcessHandle {
    public:
        explicit ProcessHandle(int pid) : _pid(pid) {}
        // A child still running is killed and reaped: none outlives its owner, none is
        // left a zombie.
        ~ProcessHandle();
        ProcessHandle(const ProcessHandle&) = delete;
        ProcessHandle& operator=(const ProcessHandle&) = delete;

        int pid() const { return _pid; }
        // Waits for the child's end and returns its exit status; -1 when the system has no
        // status to give (the child was reaped elsewhere).
        int wait();
        // The exit status, or nothing when the child still runs after `timeout`.
        std::optional<int> waitFor(std::chrono::duration<double> timeout);

    private:
        // Collects the status if the child has ended; `block` waits for that.
        bool reap(bool block);

        int _pid;
        std::optional<int> _status;
    };

    // Starts `arguments` (the program first, searched on PATH unless it holds a '/').
    // With `output`, the child's standard output and error go into that pipe and this
    // process's write end is closed (whether or not the start succeeded), so the reader sees
    // the end of the pipe when the child is done. Returns null with the reason in `error`
    // when the program cannot be started: "Cannot start "<program>": <system's reason>".
    static std::unique_ptr<ProcessHandle> spawn(const std::vector<std::string>& arguments,
                                                Pipe* output, std::string& error);
};

}  // namespace tolm::OS
