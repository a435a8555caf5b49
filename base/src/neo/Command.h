#pragma once
#include <functional>
#include <string>

#include "neo/Properties.h"

namespace tolm {

// A command is a Properties record whose "command" entry names it; the rest are its
// arguments. A handler fills the response, or throws Error to fail the command.
class Command {
  public:
    static constexpr const char* COMMAND_TAG = "command";
    using Handler = std::function<void(const Properties& command, Properties& response)>;

    // The command's name, or "" when it has none.
    static std::string getCommandName(const Properties& command);
    static Properties make(const std::string& name);
};

}  // namespace tolm
