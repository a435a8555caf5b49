// The server's command reader on arbitrary input: every non-blank line gets exactly one
// response line, whatever the line holds (deep nesting and numbers at and beyond every limit
// among them; "Checked" reads numeric fields as the commands do).
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "neo/CheckedField.h"
#include "neo/Controller.h"
#include "platform/StringHelper.h"

namespace {

std::size_t countLines(const std::string& text, bool skipBlank) {
    std::istringstream lines(text);
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!skipBlank || !tolm::StringHelper::trim(line).empty()) ++count;
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    tolm::Controller::reset();
    tolm::Controller& controller = tolm::Controller::getSingleton();
    controller.registerCommand("Echo", [](const tolm::Properties& command,
                                          tolm::Properties& response) { response = command; });
    controller.registerCommand("Checked", [](const tolm::Properties& command,
                                             tolm::Properties& response) {
        using tolm::CheckedField;
        response.set("n", CheckedField::integer(command, "n", 1u, 8192u, 128u));
        response.set("offset", CheckedField::integer(command, "offset", INT64_MIN, INT64_MAX, 0l));
        response.set("seconds", CheckedField::number(command, "seconds", 0.0, 3600.0, 0.0));
        if (command.has("ranks"))
            response.set("ranks", CheckedField::integerList(command, "ranks", 0u, 3u));
    });
    std::istringstream input(text);
    std::ostringstream output;
    controller.setCommandStreams(input, output);
    controller.processCommands();
    if (countLines(output.str(), false) != countLines(text, true)) __builtin_trap();
    return 0;
}
