// The command table.
#include "command.hpp"
#include "nouns.hpp"

namespace kx::ctl {
namespace {

const Argument kLocation{
    .name = "LOCATION",
    .help = "PCI bus location of the card, as \"card list\" shows it",
};

}  // namespace

std::span<const Command> commands() {
    static const std::vector<Command> table = {
        {
            .noun = "card",
            .verb = "list",
            .help = "Show the adapters of this host",
            .about =
                "One line a card: its PCI bus location, by which every other command names it, "
                "chip, model, PCI device id, number of ports, firmware, and its offload "
                "engine (\"yes\", \"no\", or the name of the offload device).",
            .arguments = {},
            .examples = {"kxctl card list", "kxctl card list --json"},
            .run = card::list,
        },
        {
            .noun = "port",
            .verb = "list",
            .help = "Show the ports of a card",
            .about = "One line a port: its number within the card, interface, link, speed in Mb/s, "
                     "duplex, MTU in bytes, MAC and IPv4 address. A value that the driver does not "
                     "know is shown as \"-\".",
            .arguments = {kLocation},
            .examples = {"kxctl port list 03:00.4", "kxctl --sim port list 03:00.4 --json"},
            .run = port::list,
        },
        {
            .noun = "module",
            .verb = "list",
            .help = "Show the driver modules that are installed",
            .about = "One line a kernel module that belongs to the adapters and has a module file: "
                     "whether it is loaded (\"?\" when the kernel does not tell), its version and "
                     "its description. Needs no adapter and no loaded driver.",
            .arguments = {},
            .examples = {"kxctl module list", "kxctl --sim=lab module list"},
            .run = module::list,
        },
        {
            .noun = "version",
            .verb = "",
            .help = "Show the versions of kxctl and of the library",
            .about = "The version of kxctl, name and version of the library that it runs with, and "
                     "the PCI vendor id by which the library knows its adapters.",
            .arguments = {},
            .examples = {"kxctl version", "kxctl version --json"},
            .run = version::show,
        },
    };
    return table;
}

std::span<const Argument> global_options() {
    static const std::vector<Argument> table = {
        {.name = "-j,--json", .help = "Print JSON, and nothing else, on standard output"},
        {.name = "-v,--verbose", .help = "Show the library's own messages on standard error"},
        {
            .name = "--sim",
            .help = "Run on a simulated host (scenario lab unless named)",
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
        {.name = "-h,--help", .help = "Print this help, or that of a noun or a command"},
    };
    return table;
}

}  // namespace kx::ctl
