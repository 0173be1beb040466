// Whether the dynamic loader puts libkxsim.so into a program.
#pragma once

#include <string>

namespace kxsim {

// Why a command would run without the library, or an empty text. The command is looked for as
// execvp does it; one that cannot be found or run at all is left to execvp.
[[nodiscard]] std::string why_not_preloadable(const std::string& command);

}  // namespace kxsim
