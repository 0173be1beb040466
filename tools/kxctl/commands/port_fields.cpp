#include "commands/port_fields.hpp"

#include <fmt/core.h>

#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

// The settings that a list of ports shows.
constexpr std::string_view kListed[] = {"speed", "duplex", "autoneg", "mtu"};

Json value_or_null(const Setting& setting, const PortInfo& port) {
    const auto value = setting.value_in(&port.settings);
    return value ? Json(*value) : Json();
}

}  // namespace

Cell link_cell(const PortInfo& port) {
    return port.link_detected == 0 ? Cell("down", Style::kBad) : Cell("up", Style::kGood);
}

std::string setting_text(const Setting& setting, const PortInfo& port) {
    const auto value = setting.value_in(&port.settings);
    return value && setting.known.contains(*value) ? setting.text_of(*value) : "";
}

std::string setting_text(std::string_view key, const PortInfo& port) {
    return setting_text(port_setting(key), port);
}

Json summary_json(const PortInfo& port) {
    Json all = {
        {"instance", port.instance},
        {"interface", field_text(port.interface_name)},
        {"link_detected", port.link_detected},
    };
    for (const std::string_view key : kListed) {
        all[std::string(key)] = value_or_null(port_setting(key), port);
    }
    all.update(Json{
        {"mac", text_or_null(field_text(port.mac))},
        {"ipv4_address", text_or_null(field_text(port.ipv4_address))},
        {"ipv4_netmask", text_or_null(field_text(port.ipv4_netmask))},
        {"ipv6_address", text_or_null(field_text(port.ipv6_address))},
        {"connector", text_or_null(field_text(port.connector))},
    });
    return all;
}

Json complete_json(const PortInfo& port) {
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
        {"wake_on_lan_supported", text_or_null(field_text(port.wol_supported))},
        {"wake_on_lan_enabled", text_or_null(field_text(port.wol_enabled))},
    });
    for (const Setting& setting : port_settings()) {
        if (setting.is_shown()) {
            all[setting.key] = value_or_null(setting, port);
        }
        if (const auto limit = setting.limit_in(port)) {
            all[std::string(setting.key) + "_maximum"] = *limit;
        }
    }
    return all;
}

}  // namespace kx::ctl
