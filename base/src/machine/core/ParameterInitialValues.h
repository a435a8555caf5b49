#pragma once
#include <map>
#include <memory>
#include <string>

namespace tolm {

// Initial values of named parameters given on the command line ("-param NAME VALUE"),
// kept for the server to apply once its models exist. The last value given for a name wins.
// The singleton is destroyed by the singleton cleaner at the end of a run.
class ParameterInitialValues {
  public:
    static ParameterInitialValues& getSingleton();

    void addParameterArg(const std::string& name, const std::string& value);
    const std::map<std::string, std::string>& getParameterValues() const { return _values; }

  private:
    static void reset();

    static std::unique_ptr<ParameterInitialValues> _singleton;
    std::map<std::string, std::string> _values;
};

}  // namespace tolm
