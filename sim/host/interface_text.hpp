// Reads the texts that describe interfaces, their MACs and their addresses.
#pragma once

#include <sys/socket.h>

#include <string>

#include "state/network.hpp"

namespace kxsim {

// Each throws std::invalid_argument that says what was found and what was expected.
void check_interface_name(const std::string& name);
void check_mac(const std::string& text);
void check_ipv4(const std::string& text);
void check_ipv6(const std::string& text);

void parse_mac(const std::string& text, std::uint8_t (&mac)[6]);
[[nodiscard]] state::Address parse_address(const std::string& text, sa_family_t family);

[[nodiscard]] std::string mac_text(const std::uint8_t (&mac)[6]);
[[nodiscard]] std::string made_up_mac(const std::string& name);

}  // namespace kxsim
