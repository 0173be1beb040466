// The command table, joined from the rows of each file, and the options of all commands.
#include "commands/commands.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "cli/list.hpp"

namespace kx::ctl {
namespace {

// The list of the parts. Parts join it before main() begins, in any order.
const TablePart* last_part = nullptr;

std::vector<Command> all_commands() {
    std::vector<Command> all;
    all.reserve(64);
    for (const TablePart* const part : TablePart::all()) {
        std::ranges::move(part->rows(), std::back_inserter(all));
    }
    std::ranges::for_each(all, add_list_options);
    return all;
}

}  // namespace

TablePart::TablePart(int place, Rows* function) noexcept
    : place_(place), rows_(function), next_(std::exchange(last_part, this)) {}

std::vector<const TablePart*> TablePart::all() {
    std::vector<const TablePart*> parts;
    for (const TablePart* part = last_part; part != nullptr; part = part->next_) {
        parts.push_back(part);
    }
    std::ranges::sort(parts, {}, &TablePart::place);
    return parts;
}

std::span<const Command> commands() {
    static const auto* const table = new std::vector<Command>(all_commands());  // until the end
    return *table;
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
