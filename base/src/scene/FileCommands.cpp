#include "scene/FileCommands.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/files/FileReplacement.h"
#include "machine/files/InputFileStream.h"
#include "machine/core/Machine.h"
#include "machine/comm/MessageLimits.h"
#include "machine/files/ParallelFile.h"
#include "neo/CheckedField.h"
#include "neo/Controller.h"
#include "neo/Error.h"
#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "platform/StringHelper.h"
#include "platform/SystemErrors.h"

namespace tolm {
namespace {

constexpr std::uint64_t valueBytes = sizeof(double);
constexpr std::uint64_t maxStateBytes = 16u << 20;

// The value at `index` of the field: distinct at every position, so that a block in the wrong
// place or a hole cannot pass for the field.
double fieldValue(std::uint64_t index) {
    return double(index) * 0.5 + 0.25;
}

[[noreturn]] void fail(const std::string& message) {
    throw Error(message, 1);
}

Communicator& jobCommunicator(const char* command) {
    if (Machine::isSerial())
        fail(std::string(command) + " needs MPI: start the server under mpiexec, without -s");
    return *Machine::globalCommunicator();
}

// Whether any process brings a failure; collective.
bool anyFailed(Communicator& world, const std::string& failure) {
    int failed = failure.empty() ? 0 : 1;
    world.allReduce(failed, QMX_MPI_MAX);
    return failed != 0;
}

void removeOnMaster(const std::string& path) {
    if (Machine::isMaster())
        Platform::filesystem().removeFile(path);
}

// The processes that failed raise their own message; the others return with nothing to say.
void raiseIfFailed(const std::string& failure) {
    if (!failure.empty())
        fail(failure);
}

std::string openFailure(const std::string& path, const char* purpose, const ParallelFile& file) {
    return "Cannot open the field file " + path + " for " + purpose + ": " +
           ParallelFile::getErrorStr(file.openError());
}

ParallelFile::View viewOf(std::vector<double>& values) {
    return {values.data(), MessageLimits::toUnsigned(values.size()), QMX_MPI_DOUBLE,
            unsigned(valueBytes)};
}

// "" when `values`, read from the field's value `first` on, hold the field.
std::string checkValues(const std::string& path, const std::vector<double>& values,
                        std::uint64_t first) {
    for (std::uint64_t i = 0; i < values.size(); ++i) {
        if (values[i] != fieldValue(first + i)) {
            return "The field file " + path + " does not read back as written: value " +
                   std::to_string(first + i) + " differs (is the disk full?)";
        }
    }
    return {};
}

// "<path> is not a regular file" for a path that names something else (a device, a pipe, a
// directory): its size says nothing, and reading it may never end. "" otherwise, also for a
// path that does not exist, which the opening reports.
std::string notRegularFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return {};
    return path + " is not a regular file";
}

// Writes this process's block of the field into `file` (the temporary file of `path`).
std::string writeBlock(Communicator& world, const std::string& path, const std::string& file,
                       std::uint64_t perRank) {
    ParallelFile out(world, StringHelper::decode(file), QMX_MPI_MODE_CREATE | QMX_MPI_MODE_WRONLY);
    if (!out.isOpen())
        return openFailure(path, "writing", out);
    const std::uint64_t first = world.myRank() * perRank;
    std::vector<double> values(perRank);
    for (std::uint64_t i = 0; i < perRank; ++i)
        values[i] = fieldValue(first + i);
    const int code = out.writeAt(std::int64_t(first * valueBytes), viewOf(values));
    if (code != 0)
        return "Writing the field file " + path + " failed: " + ParallelFile::getErrorStr(code);
    return {};
}

// Reads `count` values from value `first` on, of which the first `expected` must be the
// field's (the rest lie beyond the end of the file); every process passes the same count.
std::string readBlock(Communicator& world, const std::string& path, const std::string& fileName,
                      std::uint64_t first, std::uint64_t count, std::uint64_t expected) {
    ParallelFile file(world, StringHelper::decode(fileName), QMX_MPI_MODE_RDONLY);
    if (!file.isOpen())
        return openFailure(path, "reading", file);
    std::vector<double> values(count, -1.0);  // -1 is no value of the field
    file.readAtAll(std::int64_t(first * valueBytes), viewOf(values));
    values.resize(expected);
    return checkValues(path, values, first);
}

// The field goes to a temporary file beside `filename`, which replaces the old file only once
// every process has written and read back its part: a failure leaves the old file as it was.
void writeField(const Properties& command, Properties& response) {
    Communicator& world = jobCommunicator("WriteField");
    const auto path = command.get<std::string>("filename");
    const auto perRank = CheckedField::integer(command, "valuesPerRank", std::uint64_t(0),
                                               MessageLimits::maxUnsignedCount);
    const std::string temporary = FileReplacement::temporaryPathOf(path);
    std::optional<FileReplacement> replacement;  // the master's to commit or discard
    if (Machine::isMaster())
        replacement.emplace(path);
    removeOnMaster(temporary);  // a longer leftover of a killed write would keep its tail
    world.synchronise();
    std::string failure = writeBlock(world, path, temporary, perRank);
    if (!anyFailed(world, failure)) {
        const std::uint64_t neighbour = (world.myRank() + 1) % world.size();
        failure = readBlock(world, path, temporary, neighbour * perRank, perRank, perRank);
    }
    if (!anyFailed(world, failure) && replacement)
        failure = replacement->commit();
    if (anyFailed(world, failure)) {
        raiseIfFailed(failure);
        return;
    }
    const std::uint64_t values = perRank * world.size();
    response.set("filename", path);
    response.set("values", values);
    response.set("bytes", values * valueBytes);
}

void readField(const Properties& command, Properties& response) {
    Communicator& world = jobCommunicator("ReadField");
    const auto path = command.get<std::string>("filename");
    const std::string notRegular = notRegularFile(path);
    if (anyFailed(world, notRegular)) {
        raiseIfFailed(notRegular);
        return;
    }
    std::uint64_t bytes = 0;
    {
        ParallelFile file(world, StringHelper::decode(path), QMX_MPI_MODE_RDONLY);
        if (!file.isOpen())
            fail(openFailure(path, "reading", file));
        bytes = file.getFileSize();
    }
    if (bytes % valueBytes != 0) {
        fail(path + " is not a field file: its " + std::to_string(bytes) +
             " bytes are no whole number of values");
    }
    const std::uint64_t values = bytes / valueBytes;
    const std::uint64_t share = (values + world.size() - 1) / world.size();
    const std::uint64_t first = std::min(values, world.myRank() * share);
    const std::string failure =
        readBlock(world, path, path, first, share, std::min(share, values - first));
    if (anyFailed(world, failure)) {
        raiseIfFailed(failure);
        return;  // the failing processes' error is the answer, with nothing beside it
    }
    response.set("filename", path);
    response.set("values", values);
    response.set("bytes", bytes);
}

// Why `path` cannot be read, in the system's words.
std::string whyUnreadable(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return Platform::error().lastErrorText();
    std::fclose(file);
    return "it could not be opened as a stream";
}

Properties readStateEntries(InputFileStream& state, const std::string& path) {
    std::string magic;
    int version = 0;
    state >> magic >> version;
    if (!state || magic != "TolmState" || version != 1)
        fail(path + " is not a state file: it does not begin with \"TolmState 1\"");
    Properties entries;
    for (;;) {
        std::string key;
        if (!(state >> key))
            break;
        std::string value;
        if (!(state >> value))
            fail("The state file " + path + " ends without a value for \"" + key + "\"");
        entries.set(key, value);
    }
    if (state.bad())
        fail("Reading the state file " + path + " failed");
    return entries;
}

// Whether every process holds the same `entries` (collective in a parallel run).
bool ranksAgree(const Properties& entries) {
    if (Machine::isSerial())
        return true;
    std::vector<std::string> all;
    Machine::globalCommunicator()->gather(entries.toString(), all, Communicator::masterRank());
    return std::all_of(all.begin(), all.end(),
                       [&all](const std::string& text) { return text == all.front(); });
}

// Why the reader does not read `path` as a state file, "" when it may: only a regular file of
// at most maxStateBytes is read, so that the reading ends and its memory is bounded. The
// reader's answer, on every process.
std::string stateFileProblem(const std::string& path) {
    std::string problem;
    if (Machine::isSerial() || Machine::isMaster()) {
        problem = notRegularFile(path);
        struct stat status {};
        if (problem.empty() && ::stat(path.c_str(), &status) == 0 &&
            std::uint64_t(status.st_size) > maxStateBytes) {
            problem = "The state file " + path + " holds " + std::to_string(status.st_size) +
                      " bytes, more than the " + std::to_string(maxStateBytes) + " it may hold";
        }
    }
    if (Machine::isParallel())
        Machine::globalCommunicator()->broadcast(problem, Communicator::masterRank());
    return problem;
}

void restoreState(const Properties& command, Properties& response) {
    const auto path = command.get<std::string>("filename");
    raiseIfFailed(stateFileProblem(path));
    InputFileStream state;
    state.setBroadcastFlag(true);
    if (!state.open(path.c_str()))
        fail("Cannot open the state file " + path + ": " + whyUnreadable(path));
    const Properties entries = readStateEntries(state, path);
    response.set("filename", path);
    response.setChild("entries", entries);
    response.set("ranksAgree", ranksAgree(entries));
}

}  // namespace

void registerFileCommands(Controller& controller) {
    controller.registerCommand("WriteField", writeField);
    controller.registerCommand("ReadField", readField);
    controller.registerCommand("RestoreState", restoreState);
}

}  // namespace tolm
