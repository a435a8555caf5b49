#include "neo/Command.h"

namespace tolm {

std::string Command::getCommandName(const Properties& command) {
    const auto& tree = command.value();
    const auto found = tree.find(COMMAND_TAG);
    return (found != tree.end() && found->is_string()) ? found->get<std::string>() : "";
}

Properties Command::make(const std::string& name) {
    Properties command;
    command.set(COMMAND_TAG, name);
    return command;
}

}  // namespace tolm
