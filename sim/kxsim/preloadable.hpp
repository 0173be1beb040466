// Whether the dynamic loader loads libkxsim.so into a program.
#pragma once

#include <string>

namespace kxsim {

// Why a command would run without the library, or an empty text. The search for the command is that
// of execvp; execvp reports a command that cannot be found or run.
[[nodiscard]] std::string why_not_preloadable(const std::string& command);

}  // namespace kxsim
