// The command table, joined from the rows of each file, and the options of all commands.
#include "commands/commands.hpp"

#include <algorithm>
#include <iterator>

namespace kx::ctl {
namespace {

// In the order of the help. A noun's rows are next to each other.
constexpr Rows* kRows[] = {
    card::rows,         card::stats_rows,  port::rows,
    port::show_rows,    port::stats_rows,  port::set_rows,
    offload::show_rows, offload::set_rows, iwarp::rows,
    module::rows,       adapter::rows,     vpd::rows,
    flash::rows,        flash::boot_rows,  flash::config_show_rows,
    flash::config_rows, vm::rows,          vf::rows,
    bridge::rows,       metrics::rows,     host_report::rows,
    restore::rows,      repair::rows,      version::rows,
};

std::vector<Command> all_commands() {
    std::vector<Command> all;
    for (Rows* const rows : kRows) {
        std::ranges::move(rows(), std::back_inserter(all));
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
