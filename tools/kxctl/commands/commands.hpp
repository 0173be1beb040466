// The command table: where its rows are, and the arguments that commands of several files take.
//
// Each file of this folder holds the functions of its commands, and behind them their rows.
#pragma once

#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

// A function that returns the rows of a file. commands.cpp joins them in the order of the help.
using Rows = std::vector<Command>();

namespace card {
Rows rows, stats_rows;
}  // namespace card

namespace port {
Rows rows, show_rows, stats_rows, set_rows;
}  // namespace port

namespace offload {
Rows show_rows, set_rows;
}  // namespace offload

namespace iwarp {
Rows rows;
}  // namespace iwarp

namespace module {
Rows rows;
}  // namespace module

namespace adapter {
Rows rows;
}  // namespace adapter

namespace vpd {
Rows rows;
}  // namespace vpd

namespace flash {
Rows rows, boot_rows, config_show_rows, config_rows;
}  // namespace flash

namespace vm {
Rows rows;
}  // namespace vm

namespace vf {
Rows rows;
}  // namespace vf

namespace bridge {
Rows rows;
}  // namespace bridge

namespace metrics {
Rows rows;
}  // namespace metrics

namespace host_report {
Rows rows;
}  // namespace host_report

namespace restore {
Rows rows;
}  // namespace restore

namespace repair {
Rows rows;
}  // namespace repair

namespace version {
Rows rows;
}  // namespace version

inline const Argument kLocation{
    .name = "LOCATION",
    .help = "PCI bus location of the card, as \"card list\" shows it",
};
inline const Argument kAdapter{
    .name = "LOCATION",
    .help = "PCI bus location of the adapter, as \"adapter list\" shows it",
};
inline const Argument kPort{
    .name = "PORT",
    .help = "Number of the port within its card, as \"port list\" shows it",
};
inline const Argument kChanges{
    .name = "KEY=VALUE",
    .help = "Setting and value; numbers are decimal or 0x hexadecimal",
    .count = Count::kSeveral,
};
inline const Argument kDryRun{
    .name = "--dry-run",
    .help = "Show old and new values, change nothing",
};
inline const Argument kMachine{
    .name = "VM",
    .help = "Name, UUID or id of the virtual machine, as \"vm list\" shows them",
};

}  // namespace kx::ctl
