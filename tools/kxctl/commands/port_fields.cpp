#include "commands/port_fields.hpp"

#include <fmt/core.h>

#include <charconv>

#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

// What drivers report for a link whose speed or duplex they do not know.
constexpr std::uint16_t kUnknownSpeed = 0xFFFF;
constexpr std::uint8_t kHalf = 0;
constexpr std::uint8_t kFull = 1;

// A number that stands in its record as text: null when there is none.
Json number_or_null(const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? Json(number) : Json();
}

Json ring_json(std::uint32_t current, std::uint32_t maximum) {
    return {{"current", current}, {"maximum", maximum}};
}

Json rings_json(const PortInfo& port) {
    const RingSizes& current = port.settings.rings;
    const RingSizes& maximum = port.ring_maxima;
    return {
        {"rx", ring_json(current.rx, maximum.rx)},
        {"rx_mini", ring_json(current.rx_mini, maximum.rx_mini)},
        {"rx_jumbo", ring_json(current.rx_jumbo, maximum.rx_jumbo)},
        {"tx", ring_json(current.tx, maximum.tx)},
    };
}

}  // namespace

Cell link_cell(const PortInfo& port) {
    return port.link_detected == 0 ? Cell("down", Style::kBad) : Cell("up", Style::kGood);
}

std::string speed_text(const PortInfo& port) {
    const std::uint16_t mbps = port.settings.speed;
    return mbps == 0 || mbps == kUnknownSpeed ? "" : fmt::format("{}", mbps);
}

std::string duplex_text(const PortInfo& port) {
    const std::uint8_t duplex = port.settings.duplex;
    return duplex == kFull ? "full" : duplex == kHalf ? "half" : "";
}

Json summary_json(const PortInfo& port) {
    return {
        {"instance", port.instance},
        {"interface", field_text(port.interface_name)},
        {"link_detected", port.link_detected},
        {"speed_mbps", std::uint16_t{port.settings.speed}},
        {"duplex", port.settings.duplex},
        {"autoneg", port.settings.autoneg},
        {"mtu_bytes", number_or_null(field_text(port.settings.mtu))},
        {"mac", text_or_null(field_text(port.mac))},
        {"ipv4_address", text_or_null(field_text(port.ipv4_address))},
        {"ipv4_netmask", text_or_null(field_text(port.ipv4_netmask))},
        {"ipv6_address", text_or_null(field_text(port.ipv6_address))},
        {"connector", text_or_null(field_text(port.connector))},
    };
}

Json complete_json(const PortInfo& port) {
    const PortSettings& settings = port.settings;
    Json all = summary_json(port);
    all.update(Json{
        {"link_detected_again", port.link_detected_again},
        {"autoneg_supported", port.autoneg_supported},
        {"autoneg_advertised", port.autoneg_advertised},
        {"supported_modes", text_or_null(field_text(port.supported_modes))},
        {"advertised_modes", text_or_null(field_text(port.advertised_modes))},
        {"supported_connectors", text_or_null(field_text(port.supported_connectors))},
        {"transceiver", text_or_null(field_text(port.transceiver))},
        {"phy_address", std::uint32_t{port.phy_address}},
        {"message_level", std::uint32_t{settings.message_level}},
        {"rx_checksum", number_or_null(field_text(settings.rx_checksum))},
        {"tx_checksum", number_or_null(field_text(settings.tx_checksum))},
        {"scatter_gather", number_or_null(field_text(settings.scatter_gather))},
        {"tso", settings.tso},
        {"gso", settings.gso},
        {"rings_descriptors", rings_json(port)},
        {"pause_autoneg", settings.pause_autoneg},
        {"rx_pause", number_or_null(field_text(settings.rx_pause))},
        {"tx_pause", number_or_null(field_text(settings.tx_pause))},
        {"rx_coalescing_usecs", std::uint32_t{settings.rx_usecs}},
        {"wake_on_lan_supported", text_or_null(field_text(port.wol_supported))},
        {"wake_on_lan_enabled", text_or_null(field_text(port.wol_enabled))},
    });
    return all;
}

}  // namespace kx::ctl
