// Running a command on a simulated host.
#pragma once

#include <string>
#include <vector>

namespace kxsim {

// From here on a signal that stops the run (SIGINT, SIGQUIT, SIGTERM, SIGHUP) ends no more than the
// call that waits, so that the caller can remove what it made.
void catch_stop_signals();

// 128 and the signal that came before a command ran; 0 when none came.
[[nodiscard]] int code_of_stop();

// Start a command with the host whose session is in `root` under it, wait for it and return the
// exit code that a shell would report: its own, 128 and the signal that ended it, 126 when it
// cannot be run, 127 when there is none of that name. A command runs only after libkxsim.so was
// loaded by the environment that the command gets; one that the library cannot be loaded into is
// not run.
[[nodiscard]] int run_on_host(const std::string& root, const std::vector<std::string>& command);

}  // namespace kxsim
