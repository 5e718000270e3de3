// failure.h - the one way in which the program gives up: a line that names the culprit, and exit status 1.
#ifndef VQNS_FAILURE_H
#define VQNS_FAILURE_H

#include <stdexcept>
#include <string>

namespace vqns_tool {

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// `name` is a file as the user called it, or "standard input" and the like.
[[noreturn]] inline void fail(const std::string& name, const std::string& reason) {
    throw Failure(name + ": " + reason);
}

std::string system_reason(int error);  // as strerror has it

// A message of libsndfile without its decorations.
std::string sound_reason(std::string message);

}  // namespace vqns_tool

#endif
