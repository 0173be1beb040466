#include "commands/port_fields.hpp"

#include <fmt/core.h>
#include <linux/ethtool.h>

#include <utility>

#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

// The settings that a list of ports shows.
constexpr std::string_view kListed[] = {"speed", "duplex", "autoneg", "mtu"};

Json value_or_null(const Setting& setting, const Port& port) {
    return setting.json_of(known_value(setting, port));
}

// A field that one request fills.
Json if_answered(const Port& port, std::uint32_t command, Json value) {
    return port.answered(command) ? std::move(value) : Json();
}

Json link_json(const Port& port, std::uint8_t field) {
    return if_answered(port, ETHTOOL_GLINK, field != 0);
}

// The library writes the words of a list one behind the other; some have no blank after them. A
// list without words is a sentence that says so.
Json words_in(const std::string& text) {
    Json words = Json::array();
    if (text.starts_with("N/A") || text.starts_with("Not ")) {
        return words;
    }
    std::string word;
    const auto end_word = [&] {
        if (!word.empty()) {
            words.push_back(std::exchange(word, {}));
        }
    };
    for (const char c : text) {
        if (c == ' ') {
            end_word();
            continue;
        }
        word += c;
        if (word.ends_with("/Full") || word.ends_with("/Half")) {
            end_word();
        }
    }
    end_word();
    return words;
}

// Each wake-on-LAN mode is a letter; the letter d alone means none.
Json letters_in(const std::string& text) {
    Json letters = Json::array();
    for (const char letter : text) {
        if (letter != 'd') {
            letters.push_back(std::string(1, letter));
        }
    }
    return letters;
}

Json phy_address_json(const Port& port) {
    const auto address = known_phy_address(port);
    return address ? Json(*address) : Json();
}

Json ipv6_json(const Port& port) {
    if (!port.ipv6_addresses) {
        return {};
    }
    Json all = Json::array();
    for (const Ipv6Address& address : *port.ipv6_addresses) {
        all.push_back(
            {{"address", address.address},
             {"prefix_length", address.prefix_length},
             {"scope", address.scope}});
    }
    return all;
}

}  // namespace

Cell link_cell(const Port& port) {
    if (!port.answered(ETHTOOL_GLINK)) {
        return Cell("");
    }
    return port.link_detected == 0 ? Cell("down", Style::kBad) : Cell("up", Style::kGood);
}

std::optional<std::uint32_t> known_phy_address(const Port& port) {
    constexpr std::uint32_t kLargest = 31;  // on an MDIO bus
    const std::uint32_t address = port.phy_address;
    return port.answered(ETHTOOL_GSET) && address <= kLargest ? std::optional(address)
                                                              : std::nullopt;
}

std::string setting_text(const Setting& setting, const Port& port) {
    const auto value = known_value(setting, port);
    return value ? setting.text_of(*value) : "";
}

std::string setting_text(std::string_view key, const Port& port) {
    return setting_text(port_setting(key), port);
}

Json summary_json(const Port& port) {
    Json all = {
        {"instance", port.instance},
        {"interface", field_text(port.interface_name)},
        {"link_detected", link_json(port, port.link_detected)},
    };
    for (const std::string_view key : kListed) {
        all[std::string(key)] = value_or_null(port_setting(key), port);
    }
    all.update(Json{
        {"mac", text_or_null(field_text(port.mac))},
        {"ipv4_address", text_or_null(field_text(port.ipv4_address))},
        {"ipv4_netmask", text_or_null(field_text(port.ipv4_netmask))},
        {"ipv6_address", text_or_null(field_text(port.ipv6_address))},
        {"ipv6_addresses", ipv6_json(port)},
        {"connector", text_or_null(field_text(port.connector))},
    });
    return all;
}

Json complete_json(const Port& port) {
    const auto of_link = [&](Json value) {
        return if_answered(port, ETHTOOL_GSET, std::move(value));
    };
    const auto of_wake = [&](Json value) {
        return if_answered(port, ETHTOOL_GWOL, std::move(value));
    };
    Json all = summary_json(port);
    all.update(Json{
        {"link_detected_again", link_json(port, port.link_detected_again)},
        {"autoneg_supported", of_link(port.autoneg_supported != 0)},
        {"autoneg_advertised", of_link(port.autoneg_advertised != 0)},
        {"supported_modes", of_link(words_in(field_text(port.supported_modes)))},
        {"advertised_modes", of_link(words_in(field_text(port.advertised_modes)))},
        {"supported_connectors", of_link(words_in(field_text(port.supported_connectors)))},
        {"transceiver", text_or_null(field_text(port.transceiver))},
        {"phy_address", phy_address_json(port)},
        {"wake_on_lan_supported", of_wake(letters_in(field_text(port.wol_supported)))},
        {"wake_on_lan_enabled", of_wake(letters_in(field_text(port.wol_enabled)))},
    });
    for (const Setting& setting : port_settings()) {
        if (setting.is_shown()) {
            all[setting.key] = value_or_null(setting, port);
        }
        if (setting.limit != kNoLimit) {
            const auto limit = known_limit(setting, port);
            all[std::string(setting.key) + "_maximum"] = limit ? Json(*limit) : Json();
        }
    }
    return all;
}

void add_unread_summary(const Port& port, Incomplete& incomplete) {
    incomplete.add(port.unread({ETHTOOL_GLINK, ETHTOOL_GSET}));
}

void add_unread_fields(const Port& port, Incomplete& incomplete) {
    add_unread_summary(port, incomplete);
    incomplete.add(port.unread({ETHTOOL_GWOL}));
    for (const Setting& setting : port_settings()) {
        incomplete.add(port.unread({setting.reads}));
    }
}

}  // namespace kx::ctl
