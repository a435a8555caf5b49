#pragma once
#include <map>
#include <string>
#include <vector>

namespace tolm::test {

// What a finished child process left behind.
struct ChildResult {
    int exitCode = -1;  // the exit status, or 128 + signal number when a signal ended it
    std::string out;
    std::string err;
};

// Runs `arguments` (the program first) with `input` on its standard input and waits for it.
// `timeoutSeconds` bounds the run: a child still running then is killed (and the result says
// so through its signal code), so a hang fails the test instead of blocking it.
ChildResult runChild(const std::vector<std::string>& arguments, const std::string& input = "",
                     int timeoutSeconds = 60);

// A fresh, empty directory under the system's temporary directory.
std::string makeTemporaryDirectory();
// Writes `text` to `path`, replacing it.
void writeTextFile(const std::string& path, const std::string& text);
// All of `path` ("" when it cannot be read).
std::string readTextFile(const std::string& path);
// The key=value lines of `path`, as the test fixtures' scripts leave them (none when missing).
std::map<std::string, std::string> readKeyValueFile(const std::string& path);

}  // namespace tolm::test
