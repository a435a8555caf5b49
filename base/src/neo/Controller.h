#pragma once
#include <deque>
#include <iosfwd>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "neo/Command.h"
#include "neo/Properties.h"
#include "neo/Subject.h"

namespace tolm {

// The server's command registry and its listen/execute loop.
//
// A command runs through `executeCommand`. The outermost execution (a handler may execute
// further commands; those are not announced again) is announced to three observables, in
// this order: the scatter observable before the handler runs (an observer may replace the
// command), then the gather observable and the post-execute floating-point observable with
// the response. A handler's `Error` becomes the response's error record; a
// `NonRecoverableError` passes through to the caller, since the job cannot go on.
class Controller {
  public:
    using ResponseSubject = TypedSubject<Properties&>;

    static Controller& getSingleton();
    // Destroys the singleton (registered commands and queue included).
    static void reset();

    void registerCommand(const std::string& name, Command::Handler handler);
    bool hasCommand(const std::string& name) const { return _handlers.contains(name); }
    std::vector<std::string> commandNames() const;

    // Runs one command; true when the response carries no error.
    bool executeCommand(const Properties& command, Properties& response);
    Properties execute(const Properties& command);

    // The listen/execute loop reads one JSON object per line from `input` and writes one
    // JSON response per line to `output`, until the input ends or `requestStop` is called.
    // A line that is not a JSON object is answered with an error and the loop goes on.
    void setCommandStreams(std::istream& input, std::ostream& output);
    void processCommands();
    void requestStop() { _stopRequested = true; }
    // Commands answered by the loop (or the queue) with an error so far.
    unsigned long failedCommandCount() const { return _failedCommands; }

    void queueCommand(Properties command);
    bool hasQueuedCommands() const { return !_queue.empty(); }
    // Executes the queued commands in order, writing their responses to the output stream.
    void processQueuedCommands();

    // A command that runs on this process alone (not on every process of the job) marks
    // itself serial-critical for its duration, so that communicating from it fails at once
    // instead of hanging the job.
    class NonDistributedScope {
      public:
        NonDistributedScope() { ++_serialCriticalDepth; }
        ~NonDistributedScope() { --_serialCriticalDepth; }
        NonDistributedScope(const NonDistributedScope&) = delete;
        NonDistributedScope& operator=(const NonDistributedScope&) = delete;
    };
    static bool isSerialCritical() { return _serialCriticalDepth > 0; }

    // Held by whoever executes commands on behalf of another thread.
    std::recursive_mutex& getLock() { return _lock; }

    ResponseSubject& getMasterScatterCommandObservable() { return _scatter; }
    ResponseSubject& getMasterGatherResponseObservable() { return _gather; }
    ResponseSubject& getPostExecuteFloatingPointErrorObservable() { return _postExecute; }
    // Told after the handler of each outermost command, with the command's name and the wall
    // seconds the handler ran; the clock is read only while it has observers.
    TypedSubject<const std::string&, double>& getHandlerTimedObservable() { return _handlerTimed; }
    // Told of a termination signal (its number) seen between two commands.
    TypedSubject<int>& getSignalRaisedObservable() { return _signalRaised; }

  private:
    void runHandler(const Properties& command, Properties& response) const;
    void runTimedHandler(const Properties& command, Properties& response) const;
    void answer(const Properties& command);
    void answerMalformedLine(const std::string& problem, unsigned long lineNumber);
    void writeResponse(const Properties& response);

    std::map<std::string, Command::Handler, std::less<>> _handlers;
    std::deque<Properties> _queue;
    std::recursive_mutex _lock;
    std::istream* _input = nullptr;
    std::ostream* _output = nullptr;
    bool _stopRequested = false;
    int _executionDepth = 0;
    unsigned long _failedCommands = 0;
    static inline int _serialCriticalDepth = 0;
    ResponseSubject _scatter;
    ResponseSubject _gather;
    ResponseSubject _postExecute;
    TypedSubject<const std::string&, double> _handlerTimed;
    TypedSubject<int> _signalRaised;
};

}  // namespace tolm
