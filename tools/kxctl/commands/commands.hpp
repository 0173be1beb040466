// The command table, and the arguments that commands of several files take.
//
// Each file of this folder holds the functions of its commands, and behind them their rows.
#pragma once

#include <vector>

#include "cli/command.hpp"

namespace kx::ctl {

// A part of the command table: the rows of one file. Defining an object of it puts the rows into
// the table; no other file names them.
class TablePart {
public:
    using Rows = std::vector<Command>();

    // `place` decides where the rows are in the help: nouns are 100 apart, parts of one noun 10. No
    // two parts have the same.
    TablePart(int place, Rows* function) noexcept;
    TablePart(const TablePart&) = delete;
    TablePart& operator=(const TablePart&) = delete;

    // Every part, in the order of the help.
    [[nodiscard]] static std::vector<const TablePart*> all();

    [[nodiscard]] int place() const { return place_; }
    [[nodiscard]] std::vector<Command> rows() const { return rows_(); }

private:
    int place_;
    Rows* rows_;
    const TablePart* next_;  // the part that was defined before this one
};

inline const Argument kLocation{
    .name = "LOCATION",
    .help = "PCI bus location, serial number or an interface of the card",
};
inline const Argument kAdapter{
    .name = "LOCATION",
    .help = "PCI bus location, serial number or an interface of the adapter",
};
inline const Argument kPortOrCard{
    .name = "LOCATION",
    .help =
        "Interface of the port, LOCATION/PORT, or location or serial number of the card of PORT",
};
inline const Argument kPort{
    .name = "PORT",
    .help =
        "Number of the port within its card, as \"port list\" shows it; not behind an interface",
    .count = Count::kOptional,
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
inline const Argument kKeep{
    .name = "--keep",
    .help = "Changes of this adapter that stay in the journal, 0 to 1000 (default: 5)",
    .value = "N",
};
inline const Argument kMachine{
    .name = "VM",
    .help = "Name, UUID or id of the virtual machine, as \"vm list\" shows them",
};

}  // namespace kx::ctl
