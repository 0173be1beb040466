// The command table.
#include "command.hpp"
#include "nouns.hpp"

namespace kx::ctl {
namespace {

const Argument kLocation{
    .name = "LOCATION",
    .help = "PCI bus location of the card, as \"card list\" shows it",
};
const Argument kPort{
    .name = "PORT",
    .help = "Number of the port within its card, as \"port list\" shows it",
};
const Argument kWatch{
    .name = "--watch",
    .help = "Read again after every so many seconds (0.01 to 86400) and show change and rate",
    .value = "SECONDS",
};
const Argument kCount{
    .name = "--count",
    .help = "With --watch: end after so many readings",
    .value = "N",
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
            .noun = "card",
            .verb = "stats",
            .help = "Show the counters of a card's offload engine",
            .about = "One line a counter, under the name that the driver gives it. With --watch: "
                     "each counter's change since the reading before and its rate a second; with "
                     "--json one line of JSON a reading.",
            .arguments = {kLocation, kWatch, kCount},
            .examples = {"kxctl card stats 03:00.4", "kxctl card stats 03:00.4 --watch 5"},
            .run = card::stats,
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
            .noun = "port",
            .verb = "show",
            .help = "Show everything about a port",
            .about = "Link, addresses, offloads, pause, coalescing, rings (current and largest "
                     "size in descriptors) and wake-on-LAN. Wake-on-LAN modes are letters: p PHY "
                     "activity, u unicast, m multicast, b broadcast, a ARP, g magic packet, s "
                     "secured magic packet, d none.",
            .arguments = {kLocation, kPort},
            .examples = {"kxctl port show 03:00.4 1", "kxctl port show 03:00.4 1 --json"},
            .run = port::show,
        },
        {
            .noun = "port",
            .verb = "stats",
            .help = "Show the counters of a port",
            .about = "One line a counter, under the name that the driver gives it. With --watch: "
                     "each counter's change since the reading before and its rate a second; with "
                     "--json one line of JSON a reading.",
            .arguments = {kLocation, kPort, kWatch, kCount},
            .examples = {"kxctl port stats 03:00.4 1", "kxctl port stats 03:00.4 1 --watch 2"},
            .run = port::stats,
        },
        {
            .noun = "offload",
            .verb = "show",
            .help = "Show the parameters of a card's offload engine",
            .about = "One line a parameter, under the name of its control file in "
                     "/proc/sys/toe/toeN_tom; tx_coal is a parameter of the Ethernet driver's "
                     "module. Parameters without a unit are switches, or counted as the driver "
                     "does.",
            .arguments = {kLocation},
            .examples = {"kxctl offload show 03:00.4", "kxctl --sim offload show 03:00.4 --json"},
            .run = offload::show,
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
