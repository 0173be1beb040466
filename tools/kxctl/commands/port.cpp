// port: the ports of a card.
#include <fmt/core.h>

#include "commands/commands.hpp"
#include "commands/port_fields.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::port {

namespace {

ExitCode list(const Arguments& arguments, Output& output) {
    const std::string location = card_location(arguments);
    const std::vector<PortInfo> ports = query_ports(location);
    if (output.wants_json()) {
        output.json(Json{{"location", location}, {"ports", json_array(ports, summary_json)}});
        return ExitCode::kDone;
    }
    Table table(
        {{"PORT", Align::kRight},
         {"INTERFACE"},
         {"LINK"},
         {"SPEED", Align::kRight},
         {"DUPLEX"},
         {"MTU", Align::kRight},
         {"MAC"},
         {"IPV4"}});
    for (const PortInfo& port : ports) {
        table.add_row(
            {fmt::format("{}", port.instance), field_text(port.interface_name), link_cell(port),
             setting_text("speed", port), setting_text("duplex", port), setting_text("mtu", port),
             field_text(port.mac), field_text(port.ipv4_address)});
    }
    output.table(table);
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "port",
            .verb = "list",
            .help = "Show the ports of a card",
            .about = "One line for each port: its number within the card, interface, link, speed "
                     "in Mb/s, duplex, MTU in bytes, MAC and IPv4 address. A value that the "
                     "driver does not know appears as \"-\".",
            .arguments = {kLocation},
            .examples = {"kxctl port list 03:00.4", "kxctl --sim port list 03:00.4 --json"},
            .run = list,
        },
    };
}

const TablePart kRows(200, rows);

}  // namespace
}  // namespace kx::ctl::port
