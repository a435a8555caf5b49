#pragma once
#include <chrono>

namespace tolm {

// A one-way operating-system pipe, typically carrying a child process's output to a reader
// in this process. Reads wait at most a given time-out, so a silent writer never blocks the
// reader for good. Both ends are closed on exec, so children see only what they are handed.
class Pipe {
public:
    // Results of `read` besides a byte count.
    static constexpr int Failed = -1;    // the system refused the read (errno says why)
    static constexpr int Ended = -2;     // every write end is closed and all data was read
    static constexpr int TimedOut = -3;  // nothing arrived within the time-out

    // Throws std::system_error when the system cannot create a pipe.
    Pipe();
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    // Reads what is available, at most `size` bytes, waiting up to `timeout` for the first.
    // Returns the byte count (0 only when `size` is 0) or one of the codes above.
    int read(char* buffer, int size, std::chrono::duration<double> timeout);
    // Writes all `size` bytes, waiting while the pipe is full; `size` or Failed.
    int write(const char* data, int size);

    // The write end's descriptor, -1 once closed.
    int writeDescriptor() const { return _writeEnd; }
    // Closes this process's write end: the reader sees Ended once the other writers
    // (children that inherited it) close theirs.
    void closeWriteEnd();

private:
    // Waits until the read end is readable or hung up; false when `timeout` passed first.
    bool waitReadable(std::chrono::duration<double> timeout) const;

    int _readEnd = -1;
    int _writeEnd = -1;
};

}  // namespace tolm
