// Help made from the command table: for people, 80 columns wide, and for machines.
#pragma once

#include <string>

#include "cli/command_line.hpp"
#include "output/json.hpp"

namespace kx::ctl {

// Of the program, of a noun or of a command, as the invocation asks.
[[nodiscard]] std::string help_text(const Invocation& invocation);

// The same choice of commands as data, from which completions and documentation can be made.
[[nodiscard]] Json help_json(const Invocation& invocation);

}  // namespace kx::ctl
