// port show: everything about one port.
#include <fmt/core.h>

#include "cli/numbers.hpp"
#include "commands/nouns.hpp"
#include "commands/port_fields.hpp"
#include "library/query.hpp"
#include "library/record_text.hpp"
#include "output/output.hpp"
#include "output/table.hpp"

namespace kx::ctl::port {
namespace {

std::string switch_text(bool on) { return on ? "on" : "off"; }

// A switch that stands in its record as "1" or "0"; empty when the driver did not tell.
template <std::size_t N>
std::string switch_text(const char (&field)[N]) {
    const std::string text = field_text(field);
    return text.empty() ? "" : switch_text(text == "1");
}

std::string with_unit(const std::string& value, const char* unit) {
    return value.empty() ? "" : value + " " + unit;
}

std::string negotiation_text(const PortInfo& port) {
    return fmt::format(
        "{} ({}supported, {}advertised)", switch_text(port.settings.autoneg != 0),
        port.autoneg_supported != 0 ? "" : "not ", port.autoneg_advertised != 0 ? "" : "not ");
}

std::string address_text(const PortInfo& port) {
    const std::string netmask = field_text(port.ipv4_netmask);
    return field_text(port.ipv4_address) + (netmask.empty() ? "" : " netmask " + netmask);
}

std::string ring_text(std::uint32_t current, std::uint32_t maximum) {
    return fmt::format("{} of {} descriptors", current, maximum);
}

void add_link(Table& table, const PortInfo& port) {
    table.add_row({"Link", link_cell(port)});
    table.add_row({"Speed", with_unit(speed_text(port), "Mb/s")});
    table.add_row({"Duplex", duplex_text(port)});
    table.add_row({"Auto-negotiation", negotiation_text(port)});
    table.add_row({"Supported modes", field_text(port.supported_modes)});
    table.add_row({"Advertised modes", field_text(port.advertised_modes)});
    table.add_row({"Connector", field_text(port.connector)});
    table.add_row({"Supported connectors", field_text(port.supported_connectors)});
    table.add_row({"Transceiver", field_text(port.transceiver)});
    table.add_row({"PHY address", fmt::format("{}", std::uint32_t{port.phy_address})});
}

void add_addresses(Table& table, const PortInfo& port) {
    table.add_row({"MAC", field_text(port.mac)});
    table.add_row({"IPv4", address_text(port)});
    table.add_row({"IPv6", field_text(port.ipv6_address)});
    table.add_row({"MTU", with_unit(field_text(port.settings.mtu), "bytes")});
}

void add_settings(Table& table, const PortSettings& settings) {
    table.add_row({"Receive checksum", switch_text(settings.rx_checksum)});
    table.add_row({"Transmit checksum", switch_text(settings.tx_checksum)});
    table.add_row({"Scatter-gather", switch_text(settings.scatter_gather)});
    table.add_row({"TCP segmentation", switch_text(settings.tso != 0)});
    table.add_row({"Generic segmentation", switch_text(settings.gso != 0)});
    table.add_row({"Pause auto-negotiation", switch_text(settings.pause_autoneg != 0)});
    table.add_row({"Receive pause", switch_text(settings.rx_pause)});
    table.add_row({"Transmit pause", switch_text(settings.tx_pause)});
    table.add_row({"Receive coalescing", fmt::format("{} us", std::uint32_t{settings.rx_usecs})});
    table.add_row({"Message level", fmt::format("{:#x}", std::uint32_t{settings.message_level})});
}

void add_rings(Table& table, const RingSizes& current, const RingSizes& maximum) {
    table.add_row({"Receive ring", ring_text(current.rx, maximum.rx)});
    table.add_row({"Receive mini ring", ring_text(current.rx_mini, maximum.rx_mini)});
    table.add_row({"Receive jumbo ring", ring_text(current.rx_jumbo, maximum.rx_jumbo)});
    table.add_row({"Transmit ring", ring_text(current.tx, maximum.tx)});
}

}  // namespace

ExitCode show(const Arguments& arguments, Output& output) {
    const std::string location = arguments.get("LOCATION");
    const PortInfo port = query_port(location, port_instance(arguments));
    if (output.wants_json()) {
        Json all{{"location", location}};
        all.update(complete_json(port));
        output.json(all);
        return ExitCode::kDone;
    }
    Table table({{}, {}});
    table.add_row({"Interface", field_text(port.interface_name)});
    add_link(table, port);
    add_addresses(table, port);
    add_settings(table, port.settings);
    add_rings(table, port.settings.rings, port.ring_maxima);
    table.add_row({"Wake-on-LAN", field_text(port.wol_enabled)});
    table.add_row({"Supported wake-on-LAN", field_text(port.wol_supported)});
    output.table(table);
    return ExitCode::kDone;
}

}  // namespace kx::ctl::port
