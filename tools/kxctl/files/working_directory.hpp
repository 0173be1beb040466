// The working directory: the library looks there for module files first, and programs and libraries
// may look there too. Files that happen to lie in the user's must not change what kxctl answers.
#pragma once

#include <string>

namespace kx::ctl {

// Work in "/", where only root can place files. Throws Failure when that cannot be done.
void leave_working_directory();

// Where a path that the user gave leads, as seen from the directory that was left.
[[nodiscard]] std::string user_path(const std::string& path);

}  // namespace kx::ctl
