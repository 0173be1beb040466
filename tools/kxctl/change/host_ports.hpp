// All ports of this host with their settings, read in one pass: one inventory of the library and
// one list of the kernel's interfaces.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "library/host_interfaces.hpp"
#include "library/port.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {

struct HostPort {
    HostInterface identity;     // its location is known
    std::string permanent_mac;  // as "00:07:43:..."; empty when the driver does not tell it
    std::string chip;
    std::string model;           // empty when the library does not know it
    std::uint32_t instance = 0;  // its number within the card; 0 when that is not certain
    Port record = {};

    // The MAC that names the port: the permanent one when the driver tells it.
    [[nodiscard]] const std::string& mac() const {
        return permanent_mac.empty() ? identity.mac : permanent_mac;
    }
    // "eth2 (03:00.4 port 1)"
    [[nodiscard]] std::string text() const;
};

struct HostPorts {
    std::vector<HostPort> ports;        // in the library's order
    std::vector<HostInterface> silent;  // of a card, but their drivers do not answer
};

// Throws Failure when the library has no list of cards.
[[nodiscard]] HostPorts read_host_ports();

// The value of a setting of the state; nothing when the driver does not tell it, or when it does
// not count: the link negotiates speed and duplex while auto-negotiation is on.
[[nodiscard]] std::optional<std::int64_t> state_value(const Setting& setting, const Port& port);

// Read the settings of one port again.
[[nodiscard]] Port read_port_again(const std::string& interface_name);

}  // namespace kx::ctl
