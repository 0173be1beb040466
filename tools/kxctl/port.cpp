// port: the ports of a card.
#include <fmt/core.h>

#include <charconv>

#include "library_query.hpp"
#include "nouns.hpp"
#include "output.hpp"
#include "record_text.hpp"
#include "table.hpp"

namespace kx::ctl::port {
namespace {

// What drivers report for a link whose speed or duplex they do not know.
constexpr std::uint16_t kUnknownSpeed = 0xFFFF;
constexpr std::uint8_t kHalf = 0;
constexpr std::uint8_t kFull = 1;

Cell link_cell(const PortInfo& port) {
    return port.link_detected == 0 ? Cell("down", Style::kBad) : Cell("up", Style::kGood);
}

std::string speed_text(std::uint16_t mbps) {
    return mbps == 0 || mbps == kUnknownSpeed ? "" : fmt::format("{}", mbps);
}

std::string duplex_text(std::uint8_t duplex) {
    return duplex == kFull ? "full" : duplex == kHalf ? "half" : "";
}

// The MTU stands in its record as text.
Json mtu_number(const std::string& text) {
    int bytes = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, bytes);
    return error == std::errc() && rest == end ? Json(bytes) : Json();
}

Json to_json(const PortInfo& port) {
    return {
        {"instance", port.instance},
        {"interface", field_text(port.interface_name)},
        {"link_detected", port.link_detected},
        {"speed_mbps", std::uint16_t{port.settings.speed}},
        {"duplex", port.settings.duplex},
        {"autoneg", port.settings.autoneg},
        {"mtu_bytes", mtu_number(field_text(port.settings.mtu))},
        {"mac", text_or_null(field_text(port.mac))},
        {"ipv4_address", text_or_null(field_text(port.ipv4_address))},
        {"ipv4_netmask", text_or_null(field_text(port.ipv4_netmask))},
        {"ipv6_address", text_or_null(field_text(port.ipv6_address))},
        {"connector", text_or_null(field_text(port.connector))},
    };
}

}  // namespace

ExitCode list(const Arguments& arguments, Output& output) {
    const std::string location = arguments.get("LOCATION");
    const std::vector<PortInfo> ports = query_ports(location);
    if (output.wants_json()) {
        Json all = Json::array();
        for (const PortInfo& port : ports) {
            all.push_back(to_json(port));
        }
        output.json(Json{{"location", location}, {"ports", all}});
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
             speed_text(port.settings.speed), duplex_text(port.settings.duplex),
             field_text(port.settings.mtu), field_text(port.mac), field_text(port.ipv4_address)});
    }
    output.table(table);
    return ExitCode::kDone;
}

}  // namespace kx::ctl::port
