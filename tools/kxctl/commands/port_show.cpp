// port show: everything about one port.
#include <fmt/core.h>
#include <kxlinhw/settings.h>

#include "commands/commands.hpp"
#include "commands/port_fields.hpp"
#include "library/record_text.hpp"
#include "library/target.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::port {
namespace {

std::string address_text(const Port& port) {
    const std::string netmask = field_text(port.ipv4_netmask);
    return field_text(port.ipv4_address) + (netmask.empty() ? "" : " netmask " + netmask);
}

// All addresses, each with its prefix length.
std::string ipv6_text(const Port& port) {
    std::string text;
    for (const Ipv6Address& address : port.ipv6_addresses.value_or(std::vector<Ipv6Address>())) {
        text += fmt::format(
            "{}{}/{}", text.empty() ? "" : ", ", address.address, address.prefix_length);
    }
    return text;
}

std::string phy_address_text(const Port& port) {
    const auto address = known_phy_address(port);
    return address ? fmt::format("{}", *address) : "";
}

std::string negotiation_note(const Port& port) {
    return fmt::format(
        " ({}supported, {}advertised)", port.autoneg_supported != 0 ? "" : "not ",
        port.autoneg_advertised != 0 ? "" : "not ");
}

// "1024 of 16384 descriptors", "0x7", "on"; empty when the driver does not know.
std::string full_text(const Setting& setting, const Port& port) {
    std::string text = setting_text(setting, port);
    if (text.empty()) {
        return "";
    }
    if (setting.is_bit_set) {
        text = fmt::format("{:#x}", known_value(setting, port).value_or(0));
    }
    if (const auto limit = known_limit(setting, port)) {
        text += fmt::format(" of {}", *limit);
    }
    if (std::string_view(setting.key) == "autoneg") {
        text += negotiation_note(port);
    }
    return *setting.unit == '\0' ? text : fmt::format("{} {}", text, setting.unit);
}

// The settings of the link are shown next to its other properties.
bool is_of_link(const Setting& setting) { return setting.change_bit == KX_PORT_LINK; }

void add_settings(Table& table, const Port& port, bool of_link) {
    for (const Setting& setting : port_settings()) {
        if (setting.is_shown() && is_of_link(setting) == of_link) {
            table.add_row({setting.title, full_text(setting, port)});
        }
    }
}

void add_link(Table& table, const Port& port) {
    table.add_row({"Link", link_cell(port)});
    add_settings(table, port, true);
    table.add_row({"Supported modes", field_text(port.supported_modes)});
    table.add_row({"Advertised modes", field_text(port.advertised_modes)});
    table.add_row({"Connector", field_text(port.connector)});
    table.add_row({"Supported connectors", field_text(port.supported_connectors)});
    table.add_row({"Transceiver", field_text(port.transceiver)});
    table.add_row({"PHY address", phy_address_text(port)});
}

void add_addresses(Table& table, const Port& port) {
    table.add_row({"MAC", field_text(port.mac)});
    table.add_row({"IPv4", address_text(port)});
    table.add_row({"IPv6", ipv6_text(port)});
}

ExitCode show(const Arguments& arguments, Output& output) {
    const PortTarget target(arguments);
    const Port& port = target.record();
    add_unread_fields(port, output.incomplete());
    if (output.wants_json()) {
        Json all = target.json();
        all.update(complete_json(port));
        output.json(all);
        return ExitCode::kDone;
    }
    Table table({{}, {}});
    table.add_row({"Interface", target.interface()});
    table.add_row({"Location", fmt::format("{} port {}", target.location(), target.instance())});
    add_link(table, port);
    add_addresses(table, port);
    add_settings(table, port, false);
    table.add_row({"Wake-on-LAN", field_text(port.wol_enabled)});
    table.add_row({"Supported wake-on-LAN", field_text(port.wol_supported)});
    output.table(table);
    return ExitCode::kDone;
}

std::vector<Command> show_rows() {
    return {
        {
            .noun = "port",
            .verb = "show",
            .help = "Show everything about a port",
            .about = "Link, addresses, offloads, pause, coalescing, rings (current and largest "
                     "size in descriptors) and wake-on-LAN. Wake-on-LAN modes are letters: p PHY "
                     "activity, u unicast, m multicast, b broadcast, a ARP, g magic packet, s "
                     "secured magic packet, d none.",
            .arguments = {kPortOrCard, kPort},
            .examples = {"kxctl port show 03:00.4 1", "kxctl port show 03:00.4 1 --json"},
            .run = show,
        },
    };
}

const TablePart kShowRows(210, show_rows);

}  // namespace
}  // namespace kx::ctl::port
