// The working directory: the library looks there for module files first, and programs and libraries
// may look there too. Files in the user's directory must not change the answers of kxctl.
#pragma once

#include <string>

namespace kx::ctl {

// Work in "/", where only root can place files. Throws Failure when that cannot be done.
void leave_working_directory();

// A path that the user gave, resolved from the original working directory.
[[nodiscard]] std::string user_path(const std::string& path);

}  // namespace kx::ctl
