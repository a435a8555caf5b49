#pragma once
#include <functional>
#include <string>

namespace tolm::OS {

// The platform log: diagnostics that are not part of a command's answer. By default lines go
// to standard error as "Warning: <text>" or "Info: <text>"; a sink can take them instead
// (a log file, or a test that reads them back). Safe to call from any thread.
class Log {
  public:
    enum class Level { Info, Warning };
    using Sink = std::function<void(Level, const std::string&)>;

    static void info(const std::string& text);
    static void warning(const std::string& text);
    // Installs `sink` (an empty one restores standard error) and returns the previous sink.
    static Sink setSink(Sink sink);
};

}  // namespace tolm::OS
