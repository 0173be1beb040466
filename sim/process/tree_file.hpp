// Files of the simulated host as its models write them.
#pragma once

#include <string_view>

#include "process/attached.hpp"

namespace kxsim::process {

// Replace the content of a simulated file that is there; false when it is not.
bool replace_content(const Host& host, std::string_view path, std::string_view content);

}  // namespace kxsim::process
