// Running a command on a simulated host.
#pragma once

#include <string>
#include <vector>

namespace kxsim {

// From now on a signal that stops the run (SIGINT, SIGQUIT, SIGTERM, SIGHUP) only ends the waiting
// call, so that the caller can remove its files.
void catch_stop_signals();

// 128 and the signal that came before a command ran; 0 when none came.
[[nodiscard]] int code_of_stop();

// Start a command on the host whose session is in `root`, wait for it and return the exit code that
// a shell would report: its own, 128 plus the signal that ended it, 126 when it cannot be run, 127
// when it does not exist. A command runs only after libkxsim.so was loaded by the environment that
// the command gets; a command into which the library cannot be loaded is not run.
[[nodiscard]] int run_on_host(const std::string& root, const std::vector<std::string>& command);

}  // namespace kxsim
