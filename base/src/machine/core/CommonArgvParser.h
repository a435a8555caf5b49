#pragma once
#include <functional>
#include <string>
#include <vector>

#include "machine/core/MachineSettings.h"

namespace tolm {

// The options every process of a job shares. Walks argv from index 1 and applies each entry
// that is one of its options (compared exactly, case-sensitively); any other entry belongs
// to the server and is stepped over. An option that takes values consumes the entries after
// it; when they are missing the parse fails with the option's "Missing ... arg" OptionError.
// Every applied option is entered in the consumed-argument map with the number of entries it
// occupies. Settings go into the MachineSettings it was given; options that configure another
// subsystem (modules, parameters, remote shell, renderer, floating-point traps) are applied to
// it at once.
class CommonArgvParser {
  public:
    explicit CommonArgvParser(MachineSettings& settings);
    void parse(int argc, char** argv, ArgumentMap& consumed);

  private:
    struct Option {
        const char* name;
        unsigned values;             // entries that follow the option
        const char* missingMessage;  // for options with values
        bool entered;                // entered in the consumed-argument map
        std::function<void(char** values)> apply;
    };

    std::vector<Option> makeOptions();
    const Option* find(const std::string& entry) const;
    void applyCpuBind(const std::string& value);
    void applyContentionTest(const std::string& value);
    void applyRendererGraphics(const std::string& value);
    void finishJobManager();

    MachineSettings& _settings;
    std::vector<Option> _options;
    bool _jobManagerUrlGiven = false;
    std::wstring _jobManagerUrl;
    int _taskId = 0;
};

}  // namespace tolm
