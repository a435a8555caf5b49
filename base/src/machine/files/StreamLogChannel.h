#pragma once
#include <cstdio>
#include <memory>
#include <string>

#include "machine/files/StreamRedirector.h"

namespace tolm {

// One standard stream's log: the file it may be sent to (opened on first use), and the
// redirection in force for it, if any.
class StreamLogChannel {
  public:
    StreamLogChannel(FILE* stream, const std::wstring& directory, const std::wstring& fileName);
    ~StreamLogChannel();
    StreamLogChannel(const StreamLogChannel&) = delete;
    StreamLogChannel& operator=(const StreamLogChannel&) = delete;

    // Sends the stream to its log file for good (or, while another redirection is in force,
    // from the moment that redirection is dropped). Returns the log's path, or "" when the
    // file cannot be opened. Opens the file once.
    std::wstring openLogFile();
    bool isLogFileOpen() const { return _logFile != nullptr; }
    FILE* logFile() const { return _logFile; }

    void redirectToNullDevice();
    bool hasRedirector() const { return _redirector != nullptr; }
    // Drops the redirection in force; the stream goes back to where it went before it.
    void restore() { _redirector.reset(); }

    const std::wstring& path() const { return _path; }

  private:
    std::wstring _path;
    FILE* _logFile = nullptr;
    std::unique_ptr<StreamRedirector> _redirector;
    FILE* _stream;
};

}  // namespace tolm
