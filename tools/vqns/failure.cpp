#include "failure.h"

#include <cstring>

namespace vqns_tool {

std::string system_reason(int error) {
    return std::strerror(error);
}

std::string sound_reason(std::string message) {
    for (const std::string prefix : {"Error : ", "System error : "}) {
        if (message.compare(0, prefix.size(), prefix) == 0) message.erase(0, prefix.size());
    }
    while (!message.empty() && (message.back() == '.' || message.back() == '\n')) message.pop_back();
    return message;
}

}  // namespace vqns_tool
