#pragma once
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace tolm {

// An ordered key/value tree: commands, responses, errors and information records. Keys keep
// the order in which they were first set. Its text form is a JSON object.
//
// Errors: reading text that is not a JSON object, or getting a missing key or a value of
// another type, throws `Error` naming the key or the text's fault; nothing is half-read.
// Text nested deeper than MAX_NESTING is refused before it is parsed: copying, comparing and
// writing a value recurse once per level, so deeper values would overflow the stack. Reading
// text leaves the floating-point status flags as they were (a number out of range raises them),
// so that they are not blamed on the command that runs next.
class Properties {
  public:
    using Value = nlohmann::ordered_json;
    static constexpr unsigned int MAX_NESTING = 128;

    Properties() : _tree(Value::object()) {}
    explicit Properties(std::string_view jsonText);
    static Properties fromValue(Value value);

    std::string toString() const { return _tree.dump(); }

    bool has(std::string_view key) const { return _tree.contains(key); }
    void remove(std::string_view key) { _tree.erase(std::string(key)); }
    bool empty() const { return _tree.empty(); }
    std::size_t size() const { return _tree.size(); }
    std::vector<std::string> keys() const;

    template <typename T>
    T get(std::string_view key) const;
    template <typename T>
    T get(std::string_view key, T fallback) const;
    template <typename T>
    void set(std::string_view key, T&& value) {
        _tree[std::string(key)] = std::forward<T>(value);
    }

    Properties getChild(std::string_view key) const;
    void setChild(std::string_view key, const Properties& child) { set(key, child._tree); }

    const Value& value() const { return _tree; }
    Value& value() { return _tree; }

    bool operator==(const Properties& other) const { return _tree == other._tree; }

  private:
    [[noreturn]] void throwBadValue(std::string_view key, const char* problem) const;

    Value _tree;
};

template <typename T>
T Properties::get(std::string_view key) const {
    const auto found = _tree.find(key);
    if (found == _tree.end())
        throwBadValue(key, "is missing");
    try {
        return found->template get<T>();
    } catch (const nlohmann::json::exception&) {
        throwBadValue(key, "has the wrong type");
    }
}

template <typename T>
T Properties::get(std::string_view key, T fallback) const {
    return has(key) ? get<T>(key) : fallback;
}

}  // namespace tolm
