#include "platform/Log.h"

#include <cstdio>
#include <mutex>

namespace tolm::OS {
namespace {

std::mutex& logMutex() {
    static std::mutex mutex;
    return mutex;
}

Log::Sink& currentSink() {
    static Log::Sink sink;
    return sink;
}

void write(Log::Level level, const std::string& text) {
    std::lock_guard lock(logMutex());
    if (currentSink()) {
        currentSink()(level, text);
        return;
    }
    std::fprintf(stderr, "%s: %s\n", level == Log::Level::Warning ? "Warning" : "Info",
                 text.c_str());
    std::fflush(stderr);
}

}  // namespace

void Log::info(const std::string& text) {
    write(Level::Info, text);
}

void Log::warning(const std::string& text) {
    write(Level::Warning, text);
}

Log::Sink Log::setSink(Sink sink) {
    std::lock_guard lock(logMutex());
    Sink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

}  // namespace tolm::OS
