#include "segments_text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace vqns_tool {
namespace {

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
std::string
print(const char* format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

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

}  // namespace

std::string format_segments(const std::vector<Segment>& segments, SegmentFormat format,
                            const std::string& name, double duration) {
    std::string text;
    switch (format) {
        case SegmentFormat::kText:
            for (const Segment& s : segments) text += print("%.3f %.3f\n", s.start, s.end);
            break;
        case SegmentFormat::kLabels:
            for (const Segment& s : segments) text += print("%.6f\t%.6f\tspeech\n", s.start, s.end);
            break;
        case SegmentFormat::kJson:
            text =
                "{\"file\": " + json_string(name) + print(", \"duration\": %.6f, \"segments\": [", duration);
            for (const Segment& s : segments) {
                text += print("%s\n  {\"start\": %.6f, \"end\": %.6f}", &s == segments.data() ? "" : ",",
                              s.start, s.end);
            }
            text += segments.empty() ? "]}\n" : "\n]}\n";
            break;
    }
    return text;
}

std::string json_string(const std::string& text) {
    std::string quoted = "\"";
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8_length(text, i);
        const auto byte = static_cast<unsigned char>(text[i]);
        if (length == 0) {
            quoted += "\\ufffd";
        } else if (byte == '"' || byte == '\\') {
            quoted += {'\\', text[i]};
        } else if (byte < 0x20) {
            quoted += print("\\u%04x", byte);
        } else {
            quoted.append(text, i, length);
        }
        i += std::max<size_t>(length, 1);
    }
    return quoted + '"';
}

}  // namespace vqns_tool
