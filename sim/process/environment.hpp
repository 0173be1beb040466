// Variables in an environment, without the C library's lock and its need for initialisation.
#pragma once

#include <cstring>

namespace kxsim::process {

// The value of a variable; null when it is not in the environment, which may be null.
[[nodiscard]] inline const char* value_in(char* const* environment, const char* name) {
    const std::size_t length = std::strlen(name);
    for (; environment != nullptr && *environment != nullptr; ++environment) {
        if (std::strncmp(*environment, name, length) == 0 && (*environment)[length] == '=') {
            return *environment + length + 1;
        }
    }
    return nullptr;
}

}  // namespace kxsim::process
