#pragma once
#include <string>
#include <utility>

#include "machine/files/StreamLogChannel.h"

namespace tolm {

// Where this process's standard output and standard error go: per-process log files
// "<executable without extension><pid>-stdout.txt" and "...-stderr.txt" in a directory (opened
// only when asked for), the null device, or back to where they went before.
//
// Errors: InternalError "Failed to redirect stdout" / "Failed to redirect stderr" when a log
// file cannot be opened.
class StandardStreamManager {
  public:
    // `announce`: print, on the console, where the streams go when they are sent to the logs.
    StandardStreamManager(const std::wstring& directory, bool announce);
    ~StandardStreamManager();

    // Sends both streams to their log files; returns the two paths.
    std::pair<std::wstring, std::wstring> redirectOriginalStreamsToFile();
    bool hasRedirectedOriginalStreams() const;

    void redirectToNullDevice();
    // True unless both streams are under a redirection (e.g. to the null device).
    bool hasNullRedirection() const;
    // Drops the redirections in force; log files stay open and keep what they were sent.
    void restore();

    // Writes `text` at the head of the standard-output log: at once when the log is open,
    // else as soon as it is opened, ahead of anything the process writes there.
    void prependOutput(std::string text);

    static std::wstring logFileName(const std::string& executableName, int pid, const char* suffix);

  private:
    void writePendingOutput();

    StreamLogChannel _stdout;
    StreamLogChannel _stderr;
    bool _announce;
    std::string _pendingOutput;
};

}  // namespace tolm
