// A program that is run for its output, within a time limit.
#pragma once

#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "cli/time_limit.hpp"
#include "files/descriptor.hpp"

namespace kx::ctl {

// Reads from `in` when it has something; false stops the run.
using ChildReader = std::function<bool(const Descriptor& in)>;

// Run a program from PATH in a process group of its own. `read` gets what it prints on `stream`.
// Returns its exit status as a shell reports it; -1 when it could not be started, when `read`
// returned false, or when it took longer than `limit`: then this kills the group and names the
// program on standard error.
[[nodiscard]] int run_child(
    std::vector<std::string> words, const ChildReader& read,
    std::chrono::milliseconds limit = time_limit(), int stream = STDOUT_FILENO);

}  // namespace kx::ctl
