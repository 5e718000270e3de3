#ifndef COMMAND_H
#define COMMAND_H

#include <array>
#include <cstdio>
#include <memory>
#include <string>

/* What a shell command prints. */
inline std::string output_of(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text;
    std::array<char, 4096> buffer;
    while (const size_t n = fread(buffer.data(), 1, buffer.size(), pipe.get())) text.append(buffer.data(), n);
    return text;
}

#endif
