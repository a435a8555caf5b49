#pragma once
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "neo/Subject.h"

namespace tolm {

class Pipe;

// Follows the output of a child process that arrives through a Pipe, cuts it into lines and
// tells every observer each line, in order, without its line end ("\n" or "\r\n"). `run()` is the body of a
// worker thread; `stop()` may be called from any thread and takes effect after the current
// read, at the latest after one read time-out.
//
// Errors: nothing escapes `run()`. A failure while reading or notifying ends the loop, is
// kept as the error state (see `getErrorState`) and is told to the observers like a line.
// A pipe failure or the end of the pipe ends the loop quietly: the child's exit status says
// what became of it. At the end of the pipe an unfinished last line is still delivered.
class ProcessReporter {
public:
    using LineObserver = TypedObserver<const std::string>;

    static constexpr int BUF_SIZE = 1024;
    static constexpr std::chrono::duration<double> READ_TIMEOUT{5.0};

    // The pipe must outlive the reporter.
    explicit ProcessReporter(Pipe& pipe);
    ProcessReporter(Pipe& pipe, const std::vector<LineObserver*>& observers);
    ProcessReporter(const ProcessReporter& other);
    ProcessReporter& operator=(const ProcessReporter&) = delete;
    virtual ~ProcessReporter() = default;

    virtual void run();
    virtual void stop();

    void attachObserver(LineObserver& observer);
    void detachObserver(LineObserver& observer);
    // Empty while all is well.
    std::string getErrorState() const;

    // One lock for all reporters of the process: notifications of different children never
    // interleave, so observers need no lock of their own. It is recursive because an
    // observer may attach, detach or read the error state while it is being told a line.
    static std::recursive_mutex& mutex();

private:
    // The next complete line; false when reading has ended.
    bool readLine(std::string& line);
    // Moves the first complete line out of the unfinished rest; false when there is none.
    bool takeLine(std::string& line);
    void notify(const std::string& line);
    void reportFailure(const std::string& text);
    void setErrorState(const std::string& text);

    Pipe& _pipe;
    TypedSubject<const std::string> _observers;
    std::atomic<bool> _stopped{false};
    std::string _errorState;
    char _buffer[BUF_SIZE];
    std::string _rest;
};

}  // namespace tolm
