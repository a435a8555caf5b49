#include "platform/StringHelper.h"

namespace tolm::StringHelper {
namespace {

constexpr wchar_t replacementCharacter = 0xFFFD;

// Number of continuation bytes after lead byte `lead`, or -1 when it cannot start a sequence.
int continuationCount(unsigned char lead) {
    if (lead < 0x80)
        return 0;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 1;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 2;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 3;
    return -1;
}

bool isValidCodePoint(char32_t point, int continuations) {
    static constexpr char32_t smallestForLength[] = {0, 0x80, 0x800, 0x10000};
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    return point >= smallestForLength[continuations] && point <= 0x10FFFF && !surrogate;
}

void appendUtf8(std::string& out, char32_t point) {
    if (point < 0x80) {
        out += char(point);
    } else if (point < 0x800) {
        out += char(0xC0 | (point >> 6));
        out += char(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        out += char(0xE0 | (point >> 12));
        out += char(0x80 | ((point >> 6) & 0x3F));
        out += char(0x80 | (point & 0x3F));
    } else {
        out += char(0xF0 | (point >> 18));
        out += char(0x80 | ((point >> 12) & 0x3F));
        out += char(0x80 | ((point >> 6) & 0x3F));
        out += char(0x80 | (point & 0x3F));
    }
}

}  // namespace

std::wstring decode(std::string_view utf8) {
    std::wstring wide;
    wide.reserve(utf8.size());
    std::size_t i = 0;
    while (i < utf8.size()) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const int continuations = continuationCount(lead);
        if (continuations < 0 || i + continuations >= utf8.size()) {
            wide += replacementCharacter;
            ++i;
            continue;
        }
        char32_t point = continuations == 0 ? lead : lead & (0x3F >> continuations);
        int taken = 0;
        while (taken < continuations &&
               (static_cast<unsigned char>(utf8[i + 1 + taken]) & 0xC0) == 0x80) {
            point = (point << 6) | (static_cast<unsigned char>(utf8[i + 1 + taken]) & 0x3F);
            ++taken;
        }
        if (taken != continuations || !isValidCodePoint(point, continuations)) {
            wide += replacementCharacter;
            ++i;
            continue;
        }
        wide += static_cast<wchar_t>(point);
        i += 1 + continuations;
    }
    return wide;
}

std::string toString(std::wstring_view wide) {
    std::string utf8;
    utf8.reserve(wide.size());
    for (const wchar_t element : wide) {
        const auto point = static_cast<char32_t>(element);
        const bool valid = point <= 0x10FFFF && !(point >= 0xD800 && point <= 0xDFFF);
        appendUtf8(utf8, valid ? point : char32_t(replacementCharacter));
    }
    return utf8;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        pieces.emplace_back(text.substr(start, end - start));
        if (end == std::string_view::npos)
            return pieces;
        start = end + 1;
    }
}

std::string trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

}  // namespace tolm::StringHelper
