// Whether the dynamic loader loads libkxsim.so into a program. Any other program would run on the
// real machine.
#pragma once

namespace kxsim::process {

enum class Search {
    kNone,  // the command is a path
    kPath,  // the search of execvp
};

// Whether a program must not be started because it would run without the library; then the reason
// is printed on standard error. A program that cannot be found or run is left to the kernel.
[[nodiscard]] bool would_leave_host(const char* command, Search search);

}  // namespace kxsim::process
