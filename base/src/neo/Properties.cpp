#include "neo/Properties.h"

#include "neo/Error.h"

namespace tolm {

Properties::Properties(std::string_view jsonText) {
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
