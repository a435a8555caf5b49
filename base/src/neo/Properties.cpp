#include "neo/Properties.h"

#include <algorithm>
#include <cfenv>

#include "neo/Error.h"

namespace tolm {
namespace {

// The deepest nesting of arrays and objects in JSON text, brackets inside strings left out.
unsigned int nestingOf(std::string_view text) {
    unsigned int depth = 0;
    unsigned int deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

// Runs a parse without traps and gives back the floating-point environment of the enclosing
// code as it was, dropping what the parse raised.
class FloatingPointEnvironmentKept {
  public:
    FloatingPointEnvironmentKept() { std::feholdexcept(&_environment); }
    ~FloatingPointEnvironmentKept() { std::fesetenv(&_environment); }
    FloatingPointEnvironmentKept(const FloatingPointEnvironmentKept&) = delete;
    FloatingPointEnvironmentKept& operator=(const FloatingPointEnvironmentKept&) = delete;

  private:
    std::fenv_t _environment;
};

}  // namespace

Properties::Properties(std::string_view jsonText) {
    if (nestingOf(jsonText) > MAX_NESTING) {
        throw Error("Malformed properties text: nested deeper than " +
                        std::to_string(MAX_NESTING) + " levels",
                    1);
    }
    const FloatingPointEnvironmentKept environmentKept;
    Value parsed = Value::parse(jsonText, nullptr, false);
    if (parsed.is_discarded())
        throw Error("Malformed properties text: not valid JSON", 1);
    if (!parsed.is_object())
        throw Error("Malformed properties text: not a JSON object", 1);
    _tree = std::move(parsed);
}

Properties Properties::fromValue(Value value) {
    if (!value.is_object())
        throw Error("Properties value is not a JSON object", 1);
    Properties properties;
    properties._tree = std::move(value);
    return properties;
}

std::vector<std::string> Properties::keys() const {
    std::vector<std::string> names;
    names.reserve(_tree.size());
    for (const auto& item : _tree.items())
        names.push_back(item.key());
    return names;
}

Properties Properties::getChild(std::string_view key) const {
    const auto found = _tree.find(key);
    if (found == _tree.end())
        throwBadValue(key, "is missing");
    if (!found->is_object())
        throwBadValue(key, "is not a nested properties object");
    return fromValue(*found);
}

void Properties::throwBadValue(std::string_view key, const char* problem) const {
    throw Error("Property \"" + std::string(key) + "\" " + problem, 1);
}

}  // namespace tolm
