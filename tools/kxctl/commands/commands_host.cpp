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
            .about = "Metrics in the text format of Prometheus: cards, ports with link and "
                     "speed, their most useful counters, driver modules. A host without cards "
                     "has metrics too. kxlinhw_collector_success is 0 for each collector that "
                     "could not read something; the command then prints why on standard error and "
                     "ends with exit status 4. With --output the metrics replace the file as a "
                     "whole, as "
                     "the textfile collector of the node exporter requires, and nothing is "
                     "printed.",
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
            .about = "One HTML file that needs no other files and no network: cards with ports, "
                     "links, counters, flash and product data, driver modules, virtual machines "
                     "with their virtual functions. Where something cannot be read, the page "
                     "says why.",
            .arguments =
                {{.name = "--html", .help = "The file, which is replaced", .value = "FILE"}},
            .examples = {"kxctl report --html host.html", "kxctl --sim report --html lab.html"},
            .run = host_report::run,
        },
        {
            .noun = "restore",
            .verb = "",
            .help = "Apply the saved port settings again",
            .about = "Reads " KX_PORT_PARAMETER_FILE
                     " and reports for each saved setting whether it was applied, skipped "
                     "because its interface is missing, or refused; and the number of each "
                     "damaged line. The service kxlinhw-restore runs it at start-up.",
            .arguments = with_lock_options(
                {{.name = "FILE", .help = "Read this file instead", .count = Count::kOptional}}),
            .examples = {"kxctl restore", "kxctl restore --json"},
            .run = restore::run,
        },
        {
            .noun = "repair",
            .verb = "",
            .help = "Restore a half-rewritten configuration file",
            .about = "Checks " KX_PORT_PARAMETER_FILE " and " KX_SYSCTL_FILE
                     ". After a power cut between the two renames of a rewrite, the file exists "
                     "only under other names; this command restores its name. The service "
                     "kxlinhw-repair runs it early at start-up.",
            .arguments = with_lock_options({}),
            .examples = {"kxctl repair", "kxctl repair --json"},
            .run = repair::run,
        },
        {
            .noun = "version",
            .verb = "",
            .help = "Show the versions of kxctl and of the library",
            .about = "The version of kxctl, the name and version of the library that it uses, "
                     "and the PCI vendor id of the adapters that the library manages.",
            .arguments = {},
            .examples = {"kxctl version", "kxctl version --json"},
            .run = version::show,
        },
    };
}

}  // namespace kx::ctl
