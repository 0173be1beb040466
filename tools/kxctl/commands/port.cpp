// port: the ports of a card.
#include <fmt/core.h>

#include "cli/list.hpp"
#include "commands/commands.hpp"
#include "commands/port_fields.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"

namespace kx::ctl::port {

namespace {

std::vector<Column> list_columns() {
    return {
        {"PORT", Align::kRight},
        {"INTERFACE"},
        {"LINK"},
        {"SPEED", Align::kRight},
        {"DUPLEX"},
        {"MTU", Align::kRight},
        {"MAC"},
        {"IPV4"},
        {"LOCATION"}};
}

ExitCode list(const Arguments& arguments, Output& output) {
    List ports(arguments, output, list_columns());
    const std::string location = card_location(arguments);
    for (const Port& port : query_ports(location)) {
        add_unread_summary(port, output.incomplete());
        ports.add(
            {fmt::format("{}", port.instance), field_text(port.interface_name), link_cell(port),
             setting_text("speed", port), setting_text("duplex", port), setting_text("mtu", port),
             field_text(port.mac), field_text(port.ipv4_address), location},
            summary_json(port));
    }
    if (output.wants_json()) {
        output.json(Json{{"location", location}, {"ports", ports.json()}});
    } else {
        ports.print(output, location + " has no port");
    }
    return ExitCode::kDone;
}

std::vector<Command> rows() {
    return {
        {
            .noun = "port",
            .verb = "list",
            .help = "Show the ports of a card",
            .about = "One line for each port: its number within the card, interface, link, speed "
                     "in Mb/s, duplex, MTU in bytes, MAC and IPv4 address, and the location of the "
                     "card. A value that the driver does not know appears as \"-\".",
            .arguments = {kLocation},
            .examples = {"kxctl port list 03:00.4", "kxctl --sim port list 03:00.4 --json"},
            .run = list,
            .columns = list_columns,
        },
    };
}

const TablePart kRows(200, rows);

}  // namespace
}  // namespace kx::ctl::port
