// port: the ports of a card.
#include <fmt/core.h>

#include "commands/nouns.hpp"
#include "commands/port_fields.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::port {

ExitCode list(const Arguments& arguments, Output& output) {
    const std::string location = arguments.get("LOCATION");
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

}  // namespace kx::ctl::port
