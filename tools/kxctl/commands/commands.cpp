// The command table, joined from the tables of the groups, and the options of all commands.
#include "commands/commands.hpp"

#include <algorithm>
#include <iterator>

namespace kx::ctl {
namespace {

std::vector<Command> all_commands() {
    std::vector<Command> all;
    for (const auto group : {card_commands, flash_commands, machine_commands, host_commands}) {
        std::ranges::move(group(), std::back_inserter(all));
    }
    return all;
}

}  // namespace

std::span<const Command> commands() {
    static const std::vector<Command> table = all_commands();
    return table;
}

std::span<const Argument> global_options() {
    static const std::vector<Argument> table = {
        {.name = "-j,--json", .help = "Print only JSON on standard output"},
        {.name = "-v,--verbose", .help = "Show the library's own messages on standard error"},
        {
            .name = "--sim",
            .help = "Run on a simulated host (default scenario: lab)",
            .value = "SCENARIO",
            .count = Count::kOptional,
        },
        {
            .name = "--color",
            .help = "Use colour: auto (on a terminal), always or never",
            .value = "WHEN",
            .choices = {"auto", "always", "never"},
        },
        {.name = "--version", .help = "Print the version of kxctl"},
        {.name = "-h,--help", .help = "Print the help of kxctl, of a noun or of a command"},
    };
    return table;
}

}  // namespace kx::ctl
