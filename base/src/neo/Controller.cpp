#include "neo/Controller.h"

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

#include "neo/Error.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "neo/SignalHandler.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

std::unique_ptr<Controller>& singletonSlot() {
    static std::unique_ptr<Controller> controller;
    return controller;
}

// Counts nested executions so that only the outermost one is announced.
class ExecutionDepth {
  public:
    explicit ExecutionDepth(int& depth) : _depth(++depth) {}
    ~ExecutionDepth() { --_depth; }
    bool isOutermost() const { return _depth == 1; }

  private:
    int& _depth;
};

}  // namespace

Controller& Controller::getSingleton() {
    auto& slot = singletonSlot();
    if (!slot)
        slot = std::make_unique<Controller>();
    return *slot;
}

void Controller::reset() {
    singletonSlot().reset();
}

void Controller::registerCommand(const std::string& name, Command::Handler handler) {
    TOLM_ASSERT(!name.empty() && handler, "A command needs a name and a handler");
    TOLM_ASSERT(!hasCommand(name), "Command \"" + name + "\" is registered twice");
    _handlers.emplace(name, std::move(handler));
}

std::vector<std::string> Controller::commandNames() const {
    std::vector<std::string> names;
    for (const auto& entry : _handlers)
        names.push_back(entry.first);
    return names;
}

bool Controller::executeCommand(const Properties& command, Properties& response) {
    const ExecutionDepth depth(_executionDepth);
    if (!depth.isOutermost()) {
        runHandler(command, response);
        return !Error::isErrorIn(response);
    }
    // Scatter observers may replace the command they are told of, so they see a copy; without
    // observers (a serial process, a slave) the command runs as given.
    std::optional<Properties> announced;
    if (_scatter.size() > 0) {
        announced.emplace(command);
        _scatter.notify(*announced);
    }
    if (_handlerTimed.size() > 0) [[unlikely]]
        runTimedHandler(announced ? *announced : command, response);
    else
        runHandler(announced ? *announced : command, response);
    // A check after the command (floating-point status, other processes' errors) that fails
    // makes the command's answer an error; the loop goes on.
    try {
        _gather.notify(response);
        _postExecute.notify(response);
    } catch (const NonRecoverableError&) {
        throw;
    } catch (const Error& error) {
        error.writeTo(response);
    }
    return !Error::isErrorIn(response);
}

Properties Controller::execute(const Properties& command) {
    Properties response;
    executeCommand(command, response);
    return response;
}

void Controller::runTimedHandler(const Properties& command, Properties& response) const {
    const auto start = std::chrono::steady_clock::now();
    runHandler(command, response);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    _handlerTimed.notify(Command::getCommandName(command), seconds.count());
}

void Controller::runHandler(const Properties& command, Properties& response) const {
    try {
        const std::string name = Command::getCommandName(command);
        if (name.empty())
            throw Error("Command has no \"command\" entry", 1);
        const auto handler = _handlers.find(name);
        if (handler == _handlers.end())
            throw Error("Unknown command: " + name, 1);
        handler->second(command, response);
    } catch (const NonRecoverableError&) {
        throw;
    } catch (const Error& error) {
        error.writeTo(response);
    } catch (const std::exception& failure) {
        Error(failure.what(), 2).writeTo(response);
    }
}

void Controller::setCommandStreams(std::istream& input, std::ostream& output) {
    _input = &input;
    _output = &output;
}

void Controller::processCommands() {
    TOLM_ASSERT(_input && _output, "The command loop has no command streams");
    _stopRequested = false;
    std::string line;
    unsigned long lineNumber = 0;
    while (!_stopRequested && std::getline(*_input, line)) {
        ++lineNumber;
        const std::string text = StringHelper::trim(line);
        if (text.empty())
            continue;
        std::optional<Properties> command;
        try {
            command.emplace(text);
        } catch (const Error& malformed) {
            answerMalformedLine(malformed.getMessage(), lineNumber);
            continue;
        }
        answer(*command);
        if (const int signal = SignalHandler::takePendingSignal()) {
            _signalRaised.notify(signal);
            break;
        }
    }
}

void Controller::answer(const Properties& command) {
    Properties response;
    if (!executeCommand(command, response))
        ++_failedCommands;
    writeResponse(response);
}

void Controller::answerMalformedLine(const std::string& problem, unsigned long lineNumber) {
    Properties response;
    Error("Malformed command on line " + std::to_string(lineNumber) + ": " + problem, 1)
        .writeTo(response);
    ++_failedCommands;
    writeResponse(response);
}

void Controller::writeResponse(const Properties& response) {
    if (!_output)
        return;
    *_output << response.toString() << '\n';
    _output->flush();
}

void Controller::queueCommand(Properties command) {
    _queue.push_back(std::move(command));
}

void Controller::processQueuedCommands() {
    while (!_queue.empty()) {
        Properties command = std::move(_queue.front());
        _queue.pop_front();
        answer(command);
    }
}

}  // namespace tolm
