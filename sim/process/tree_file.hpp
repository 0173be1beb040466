// Writes files of the simulated host, for its models.
#pragma once

#include <string_view>

#include "process/attached.hpp"

namespace kxsim::process {

// Replace the content of an existing simulated file; false when it does not exist.
bool replace_content(const Host& host, std::string_view path, std::string_view content);

}  // namespace kxsim::process
