#include "change/state_text.hpp"

#include <fmt/core.h>

#include <map>

#include "output/printable.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {
namespace {

// A basic string of TOML. Interface names are bytes; those that are not UTF-8 name no port.
std::string quoted(const std::string& text) {
    std::string all = "\"";
    for (const char letter : printable(text)) {
        all += letter == '"' || letter == '\\' ? std::string{'\\', letter} : std::string{letter};
    }
    return all + '"';
}

std::string value_text(const Setting& setting, std::int64_t value) {
    if (setting.is_bit_set) {
        return fmt::format("{:#x}", value);
    }
    const Json json = setting.json_of(value);
    return json.is_string() ? quoted(json.get<std::string>()) : json.dump();
}

}  // namespace

std::string state_text(std::span<const HostPort> ports) {
    std::map<std::string, unsigned> owners;
    for (const HostPort& port : ports) {
        ++owners[port.mac()];
    }
    std::string text =
        "# Port settings of this host. \"kxctl plan FILE\" shows what differs from them,\n"
        "# \"kxctl apply FILE\" sets it. kxctl-state(5) describes the file.\n";
    for (const HostPort& port : ports) {
        text += fmt::format("\n[[port]]  # {}\n", printable(port.text()));
        const bool has_mac = !port.mac().empty() && owners[port.mac()] == 1;
        text += has_mac ? fmt::format("mac = {}\n", quoted(port.mac()))
                        : fmt::format("interface = {}\n", quoted(port.identity.name));
        for (const Setting& setting : port_settings()) {
            if (const auto value = state_value(setting, port.record)) {
                text += fmt::format("{} = {}\n", setting.key, value_text(setting, *value));
            }
        }
    }
    return text;
}

}  // namespace kx::ctl
