#include "platform/Pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <system_error>

namespace tolm {

Pipe::Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "Pipe: pipe2 failed");
    }
    _readEnd = ends[0];
    _writeEnd = ends[1];
}

Pipe::~Pipe() {
    closeWriteEnd();
    ::close(_readEnd);
}

void Pipe::closeWriteEnd() {
    if (_writeEnd < 0) return;
    ::close(_writeEnd);
    _writeEnd = -1;
}

bool Pipe::waitReadable(std::chrono::duration<double> timeout) const {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeout);
    pollfd request{_readEnd, POLLIN, 0};
    for (;;) {
        const std::chrono::duration<double, std::milli> left = deadline - Clock::now();
        const int milliseconds = left.count() > 0 ? static_cast<int>(std::ceil(left.count())) : 0;
        const int ready = ::poll(&request, 1, milliseconds);
        if (ready > 0) return true;
        // A signal cut the wait short: wait out the rest of the time-out.
        if (ready < 0 && errno == EINTR) continue;
        // A poll failure is reported by the read that follows.
        return ready < 0;
    }
}

int Pipe::read(char* buffer, int size, std::chrono::duration<double> timeout) {
    if (size <= 0) return 0;
    if (!waitReadable(timeout)) return TimedOut;
    for (;;) {
        const ssize_t count = ::read(_readEnd, buffer, static_cast<std::size_t>(size));
        if (count > 0) return static_cast<int>(count);
        if (count == 0) return Ended;
        if (errno != EINTR) return Failed;
    }
}

int Pipe::write(const char* data, int size) {
    int written = 0;
    while (written < size) {
        const ssize_t count =
            ::write(_writeEnd, data + written, static_cast<std::size_t>(size - written));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return Failed;
        written += static_cast<int>(count);
    }
    return size;
}

}  // namespace tolm
