#include "text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace vqns_tool {
namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";  // U+FFFD

// Bytes of the UTF-8 character at `at`, 0 if there is none: RFC 3629, without overlong forms and surrogates.
size_t utf8_length(const std::string& s, size_t at) {
    const auto byte = [&](size_t i) { return i < s.size() ? static_cast<unsigned char>(s[i]) : 0u; };
    const auto continues = [&](size_t i) { return (byte(i) & 0xc0) == 0x80; };
    const unsigned first = byte(at), second = byte(at + 1);
    if (first < 0x80) return 1;
    if (first >= 0xc2 && first < 0xe0) return continues(at + 1) ? 2 : 0;
    if (first >= 0xe0 && first < 0xf0) {
        if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
        return continues(at + 1) && continues(at + 2) ? 3 : 0;
    }
    if (first >= 0xf0 && first < 0xf5) {
        if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
        return continues(at + 1) && continues(at + 2) && continues(at + 3) ? 4 : 0;
    }
    return 0;
}

// Each character as `quote` writes it, which gets an empty one for a byte that is not UTF-8.
template <typename Quote>
std::string quoted(const std::string& text, Quote quote) {
    std::string result;
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8_length(text, i);
        result += quote(text.substr(i, length));
        i += std::max<size_t>(length, 1);
    }
    return result;
}

std::string json_character(const std::string& character) {
    if (character.empty()) return "\\ufffd";
    const auto first = static_cast<unsigned char>(character[0]);
    if (first == '"' || first == '\\') return '\\' + character;
    return first < 0x20 ? print("\\u%04x", first) : character;
}

std::string html_character(const std::string& character) {
    if (character.empty()) return kReplacement;
    switch (const auto first = static_cast<unsigned char>(character[0])) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&#39;";
        default: {
            const bool upper_control = first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0;
            return first < 0x20 || first == 0x7f || upper_control ? kReplacement : character;
        }
    }
}

}  // namespace

std::string print(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::max(std::vsnprintf(nullptr, 0, format, arguments), 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

std::string json_string(const std::string& text) {
    return '"' + quoted(text, json_character) + '"';
}

std::string html_text(const std::string& text) {
    return quoted(text, html_character);
}

}  // namespace vqns_tool
