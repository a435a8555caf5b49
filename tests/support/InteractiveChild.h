#pragma once
#include <string>
#include <vector>

namespace tolm::test {

// A child process the test talks to while it runs: lines go to its standard input, lines
// come back from its standard output, each read with a time-out, so a test can act at a
// precise point of the child's run (kill a process while the job idles, for instance).
// Standard error goes to a file, read after the child ended. The destructor kills a child
// that still runs.
class InteractiveChild {
  public:
    explicit InteractiveChild(const std::vector<std::string>& arguments);
    ~InteractiveChild();
    InteractiveChild(const InteractiveChild&) = delete;
    InteractiveChild& operator=(const InteractiveChild&) = delete;

    void writeLine(const std::string& line);
    void closeInput();
    // The next line of standard output; false when none came within `timeoutSeconds` or the
    // output ended.
    bool readLine(std::string& line, double timeoutSeconds);
    // The exit code (128 + signal for a signal), or -1 when it did not end in time.
    int waitForExit(double timeoutSeconds);
    std::string standardError() const;
    int pid() const { return _pid; }

  private:
    int _pid = -1;
    bool _ended = false;
    int _exitCode = -1;
    int _input = -1;
    int _output = -1;
    std::string _pending;
    std::string _errorFile;
};

}  // namespace tolm::test
