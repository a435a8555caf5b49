#pragma once
#include <cstdio>
#include <string>

namespace tolm {

// Sends one standard stream (stdout or stderr) elsewhere at the file-descriptor level, so that
// output written through any API of any library follows, and puts it back when destroyed.
// Opening, duplicating and replacing descriptors are not checked: the caller hands in a path
// it can write and a descriptor that is open.
class StreamRedirector {
  public:
    // Redirects `stream` to the file at `path`, created or truncated.
    StreamRedirector(FILE* stream, const std::wstring& path);
    // Redirects `stream` to the open descriptor `target`.
    StreamRedirector(FILE* stream, const int& target);
    ~StreamRedirector();
    StreamRedirector(const StreamRedirector&) = delete;
    StreamRedirector& operator=(const StreamRedirector&) = delete;

    // Makes the stream go to `descriptor`'s file once this redirector is destroyed.
    void setRestoreDescriptor(int descriptor);
    int getOriginalFileStream() const { return _restoreDescriptor; }

  private:
    void redirectToFile(const std::wstring& path);
    void redirect(int target);

    FILE* _stream;
    int _descriptor;
    int _restoreDescriptor = -1;
};

}  // namespace tolm
