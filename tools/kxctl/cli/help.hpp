// Help, made from the command table: as text of 80 columns, and as JSON.
#pragma once

#include <string>

#include "cli/command_line.hpp"
#include "output/json.hpp"
#include "output/output.hpp"

namespace kx::ctl {

// The help of the program, of a noun or of a command.
[[nodiscard]] std::string help_text(const Invocation& invocation);

// The same commands as data, for completions and documentation.
[[nodiscard]] Json help_json(const Invocation& invocation);

// Print one of the two.
void print_help(const Invocation& invocation, Output& output);

// A few lines for who gave no command.
[[nodiscard]] std::string short_usage();

}  // namespace kx::ctl
