// The child process of kxsim, until it is the command. Both functions end it with 126 or 127 when
// the command cannot be run.
#pragma once

#include <string>
#include <vector>

namespace kxsim {

// Load libkxsim.so from this path, as the loader of the command will, which would continue without
// it. program: for the message.
void require_library(const std::string& library, const char* program);

// Replace this process by the command.
[[noreturn]] void start(const std::vector<std::string>& command);

}  // namespace kxsim
