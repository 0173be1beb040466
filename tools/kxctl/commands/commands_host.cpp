// The commands about the whole host.
#include <kxlinhw/settings.h>

#include "commands/commands.hpp"
#include "commands/nouns.hpp"
#include "settings/configuration_lock.hpp"

namespace kx::ctl {

std::vector<Command> host_commands() {
    return {
        {
            .noun = "metrics",
            .verb = "",
            .help = "Show state and counters for monitoring",
            .about = "Metrics in the text format of Prometheus: cards, ports with link and speed, "
                     "their most useful counters, driver modules. A host without cards has them "
                     "too. With --output the file is replaced as a whole, as the textfile "
                     "collector of the node exporter needs it, and nothing is printed.",
            .arguments =
                {{.name = "--all", .help = "Every counter of the ports and offload engines"},
                 {.name = "--output", .help = "Write to this file instead", .value = "FILE"}},
            .examples =
                {"kxctl metrics",
                 "kxctl metrics --all --output /var/lib/prometheus/node-exporter/kxlinhw.prom"},
            .run = metrics::run,
        },
        {
            .noun = "report",
            .verb = "",
            .help = "Write a page about the whole host",
            .about = "One HTML file that needs nothing else and no network: cards with ports, "
                     "links, counters, flash and product data, driver modules, virtual machines "
                     "with their virtual functions. What cannot be read is told in its place.",
            .arguments =
                {{.name = "--html", .help = "The file, which is replaced", .value = "FILE"}},
            .examples = {"kxctl report --html host.html", "kxctl --sim report --html lab.html"},
            .run = host_report::run,
        },
        {
            .noun = "restore",
            .verb = "",
            .help = "Apply again the port settings that were saved",
            .about = "Reads " KX_PORT_PARAMETER_FILE
                     " and tells of each saved setting whether it was applied, skipped because its "
                     "interface is gone, or refused, and of each damaged line its number. The "
                     "service kxlinhw-restore runs it at start-up.",
            .arguments = with_lock_options(
                {{.name = "FILE", .help = "Read this file instead", .count = Count::kOptional}}),
            .examples = {"kxctl restore", "kxctl restore --json"},
            .run = restore::run,
        },
        {
            .noun = "repair",
            .verb = "",
            .help = "Bring back a half-rewritten configuration file",
            .about = "Looks at " KX_PORT_PARAMETER_FILE " and " KX_SYSCTL_FILE
                     ". When a power cut came between the two renamings of a rewrite, the file is "
                     "there under other names only; it gets its own name back. The service "
                     "kxlinhw-repair runs it early at start-up.",
            .arguments = with_lock_options({}),
            .examples = {"kxctl repair", "kxctl repair --json"},
            .run = repair::run,
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
}

}  // namespace kx::ctl
