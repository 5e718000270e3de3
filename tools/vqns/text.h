// text.h - numbers into text, and text into JSON and HTML.
#ifndef VQNS_TEXT_H
#define VQNS_TEXT_H

#include <string>

namespace vqns_tool {

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
std::string
print(const char* format, ...);

// As a JSON string, quotes included. Bytes that are not UTF-8 become U+FFFD.
std::string json_string(const std::string& text);

// As HTML text or the value of a quoted attribute. Bytes that are not UTF-8, and control characters, which
// HTML cannot hold, become U+FFFD.
std::string html_text(const std::string& text);

}  // namespace vqns_tool

#endif
