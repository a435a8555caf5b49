// The common option parser on arbitrary argument vectors (entries separated by NUL bytes):
// every outcome is either a parse or an option error, never a crash.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "machine/core/Machine.h"
#include "neo/Error.h"
#include "neo/SignalHandler.h"
#include "neo/SingletonCleaner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> entries{"tolm-server", "-s"};
    std::string entry;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            entries.push_back(entry);
            entry.clear();
        } else {
            entry += char(data[i]);
        }
    }
    entries.push_back(entry);
    std::vector<char*> argv;
    for (auto& text : entries) {
        if (text == "-module") return 0;  // loading arbitrary libraries is not the parser's work
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    tolm::Machine::reset();
    tolm::Machine::ArgumentMap consumed;
    try {
        tolm::Machine::startCommunicators(int(entries.size()), argv.data(), consumed);
        tolm::Machine::parseCommonArgvs(int(entries.size()), argv.data(), consumed);
    } catch (const std::runtime_error&) {
    } catch (const tolm::Error&) {
    }
    tolm::SignalHandler::setCatchFpeSignals(false);  // "-fpe" must not outlive this input
    tolm::SingletonCleaner::reset();
    return 0;
}
