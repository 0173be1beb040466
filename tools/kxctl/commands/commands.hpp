// The groups of the command table, one file each, in the order of the help.
//
// To add a command, write its function in the file of its noun and add its row to a group.
#pragma once

#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

[[nodiscard]] std::vector<Command> card_commands();
[[nodiscard]] std::vector<Command> flash_commands();
[[nodiscard]] std::vector<Command> machine_commands();
[[nodiscard]] std::vector<Command> host_commands();

// The argument LOCATION, for commands of all groups.
inline const Argument kLocation{
    .name = "LOCATION",
    .help = "PCI bus location of the card, as \"card list\" shows it",
};

}  // namespace kx::ctl
