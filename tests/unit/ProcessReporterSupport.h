#pragma once
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "machine/remote/ProcessReporter.h"
#include "platform/Semaphore.h"
#include "platform/Thread.h"

namespace tolm::test {

// Collects the lines a reporter tells, for the test's thread to wait on.
class LineCollector : public TypedObserver<const std::string> {
public:
    void update(const std::string line) override {
        std::lock_guard lock(_mutex);
        _lines.push_back(line);
        _changed.notify_all();
    }
    // The lines as soon as `count` have arrived, or whatever arrived within `timeout`.
    std::vector<std::string> waitFor(
        std::size_t count, std::chrono::duration<double> timeout = std::chrono::seconds(10)) {
        std::unique_lock lock(_mutex);
        _changed.wait_for(lock, timeout, [&] { return _lines.size() >= count; });
        return _lines;
    }
    std::vector<std::string> lines() {
        std::lock_guard lock(_mutex);
        return _lines;
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<std::string> _lines;
};

// Runs a reporter on a worker thread. Going out of scope stops the reporter first, so a test
// that fails with the pipe still open ends within one read time-out instead of hanging.
class ReporterThread {
public:
    explicit ReporterThread(ProcessReporter& reporter) : _reporter(reporter), _thread("reporter") {
        _thread.start([this] {
            _reporter.run();
            _done.post();
        });
    }
    ~ReporterThread() {
        _reporter.stop();
        _thread.join();
    }
    ReporterThread(const ReporterThread&) = delete;
    ReporterThread& operator=(const ReporterThread&) = delete;

    // True when run() returned within `timeout`.
    bool finished(std::chrono::duration<double> timeout = std::chrono::seconds(10)) {
        return _done.waitFor(timeout);
    }

private:
    ProcessReporter& _reporter;
    Semaphore _done;
    Thread _thread;
};

}  // namespace tolm::test
