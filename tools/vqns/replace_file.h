// replace_file.h - output files that appear whole or not at all.
#ifndef VQNS_REPLACE_FILE_H
#define VQNS_REPLACE_FILE_H

#include <string>
#include <string_view>

namespace vqns_tool {

// A file under a temporary name beside its place. Unless it is committed it is removed: by the destructor,
// and when the program is ended by an interrupt, hang-up, termination or broken-pipe signal. What is not a
// regular file (a device, a named pipe) is written in place.
struct ReplacedFile {
    std::string name;       // as the user called it
    std::string place;      // where it will be, links resolved
    std::string temporary;  // empty: written in place
    int descriptor = -1;    // open for reading and writing; closed by release_descriptor's caller, or here

    ReplacedFile() = default;
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;
    ~ReplacedFile();
};

// Throws Failure when the place cannot be written.
void open_replaced(ReplacedFile& file, const std::string& name);

// Hands the descriptor to a new owner, who closes it.
int release_descriptor(ReplacedFile& file);

// Adds bytes at the end. Throws Failure.
void write_bytes(ReplacedFile& file, std::string_view bytes);

// Puts the file in its place, closed. Throws Failure.
void commit(ReplacedFile& file);

// Whether two names mean the same file, through whatever links.
bool same_file(const std::string& a, const std::string& b);

}  // namespace vqns_tool

#endif
