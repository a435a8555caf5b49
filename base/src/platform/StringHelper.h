#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace tolm::StringHelper {

// Narrow text is UTF-8. Wide strings hold one code point per element. Bytes that are not
// valid UTF-8 decode to U+FFFD, so no input is lost silently or makes decoding fail.
std::wstring decode(std::string_view utf8);
std::string toString(std::wstring_view wide);

std::vector<std::string> split(std::string_view text, char separator);
std::string trim(std::string_view text);

}  // namespace tolm::StringHelper
