// Running a command on a simulated host.
#pragma once

#include <string>
#include <vector>

namespace kxsim {

// Start a command with the host whose session is in `root` under it, wait for it and return the
// exit code that a shell would report: its own, 128 and the signal that ended it, 126 when it is no
// program, 127 when there is none of that name.
[[nodiscard]] int run_on_host(const std::string& root, const std::vector<std::string>& command);

}  // namespace kxsim
