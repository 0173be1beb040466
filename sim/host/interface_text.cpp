#include "host/interface_text.hpp"

#include <arpa/inet.h>

#include <cstdio>
#include <stdexcept>

namespace kxsim {

void check_interface_name(const std::string& name) {
    if (name.empty() || name.size() >= state::kNameSize || name == "." || name == ".." ||
        name.find_first_of("/ \t\n") != name.npos) {
        throw std::invalid_argument("\"" + name + "\" is no interface name of 1 to 15 characters");
    }
}

void check_mac(const std::string& text) {
    std::uint8_t mac[6];
    parse_mac(text, mac);
}

void check_ipv4(const std::string& text) { static_cast<void>(parse_address(text, AF_INET)); }

void check_ipv6(const std::string& text) { static_cast<void>(parse_address(text, AF_INET6)); }

void parse_mac(const std::string& text, std::uint8_t (&mac)[6]) {
    unsigned bytes[6];
    int used = 0;
    if (std::sscanf(
            text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
            &bytes[4], &bytes[5], &used) != 6 ||
        text.size() != 17 || used != 17) {
        throw std::invalid_argument("\"" + text + "\" is no MAC address like 02:4b:58:00:00:01");
    }
    for (std::size_t i = 0; i < 6; ++i) {
        mac[i] = static_cast<std::uint8_t>(bytes[i]);
    }
}

state::Address parse_address(const std::string& text, sa_family_t family) {
    const unsigned longest = family == AF_INET ? 32 : 128;
    const std::size_t slash = text.find('/');
    state::Address address{};
    address.family = family;
    address.has_netmask = slash != text.npos ? 1 : 0;
    unsigned prefix = longest;
    char end = '\0';
    const bool prefix_good =
        slash == text.npos ||
        (std::sscanf(text.c_str() + slash + 1, "%3u%c", &prefix, &end) == 1 && prefix <= longest);
    address.prefix = static_cast<std::uint8_t>(prefix);
    const std::string digits = text.substr(0, slash);
    void* const place =
        family == AF_INET ? static_cast<void*>(&address.ipv4) : static_cast<void*>(&address.ipv6);
    if (!prefix_good || ::inet_pton(family, digits.c_str(), place) != 1) {
        throw std::invalid_argument(
            "\"" + text + "\" is no " +
            (family == AF_INET ? "IPv4 address like 192.0.2.1/24"
                               : "IPv6 address like 2001:db8::1/64"));
    }
    return address;
}

std::string mac_text(const std::uint8_t (&mac)[6]) {
    char text[18];
    std::snprintf(
        text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
        mac[5]);
    return text;
}

// A locally administered address, always the same for a name.
std::string made_up_mac(const std::string& name) {
    std::uint32_t hash = 2166136261;
    for (const char letter : name) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619;
    }
    char text[18];
    std::snprintf(
        text, sizeof text, "02:4b:58:%02x:%02x:%02x", hash >> 16 & 0xFF, hash >> 8 & 0xFF,
        hash & 0xFF);
    return text;
}

}  // namespace kxsim
