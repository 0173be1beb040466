// The step between kxsim and the command: a process that has loaded libkxsim.so, or ends.
#pragma once

#include <string>
#include <vector>

namespace kxsim {

// The first argument of a kxsim that is this step; the command follows.
inline constexpr char kStartStep[] = "--start-command";

// Replace this process by the step, which replaces itself by the command. Ends with 126 or 127 when
// the command cannot be run.
[[noreturn]] void start(const std::vector<std::string>& command);

// The step itself: when libkxsim.so is in this process, it gets into the command by the same
// environment. command: ends with a null pointer.
[[noreturn]] void start_step(char** command);

}  // namespace kxsim
