// Network interfaces: the record that their drivers answer from, and their directories.
#include <arpa/inet.h>
#include <net/if.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "host/host_state.hpp"
#include "host/quiet.hpp"

namespace kxsim {
namespace {

constexpr char kDirectory[] = "/sys/class/net/";

bool same_name(const char (&slot)[state::kNameSize], std::string_view name) {
    return std::string_view(slot, strnlen(slot, sizeof slot)) == name;
}

std::uint32_t find_slot(const state::Network& network, std::string_view name) {
    std::uint32_t slot = 0;
    while (slot < network.count && !same_name(network.names[slot], name)) {
        ++slot;
    }
    return slot;
}

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

// A locally administered address, the same for a name every time.
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

std::string mac_text(const std::uint8_t (&mac)[6]) {
    char text[18];
    std::snprintf(
        text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
        mac[5]);
    return text;
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

void add_addresses(
    state::Interface& record, const std::vector<std::string>& texts, sa_family_t family) {
    for (const std::string& text : texts) {
        if (record.address_count == state::kMostAddresses) {
            throw std::invalid_argument(
                "an interface has at most " + std::to_string(state::kMostAddresses) + " addresses");
        }
        record.addresses[record.address_count++] = parse_address(text, family);
    }
}

state::Interface make_record(const Interface& interface, std::uint32_t index) {
    state::Interface record{};
    copy_field(record.driver, interface.driver, "driver name");
    copy_field(record.driver_version, interface.driver_version, "driver version");
    copy_field(record.bus_info, interface.bus_info, "bus information");
    // The driver's text may fill its field without a NUL.
    if (interface.firmware.size() > sizeof record.firmware) {
        throw std::invalid_argument("firmware text \"" + interface.firmware + "\" is too long");
    }
    std::memcpy(record.firmware, interface.firmware.data(), interface.firmware.size());
    parse_mac(interface.mac.empty() ? made_up_mac(interface.name) : interface.mac, record.mac);
    record.index = index;
    record.mtu = interface.mtu;
    record.flags = IFF_BROADCAST | IFF_MULTICAST;
    if (interface.loopback) {
        record.flags = IFF_LOOPBACK;
        std::memset(record.mac, 0, sizeof record.mac);
    }
    if (interface.up) {
        record.flags |= IFF_UP | IFF_RUNNING;
    }
    add_addresses(record, interface.ipv4, AF_INET);
    add_addresses(record, interface.ipv6, AF_INET6);
    return record;
}

void check_name(const std::string& name) {
    if (name.empty() || name.size() >= state::kNameSize || name == "." || name == ".." ||
        name.find_first_of("/ \t\n") != name.npos) {
        throw std::invalid_argument("\"" + name + "\" is no interface name of 1 to 15 characters");
    }
}

void write_directory(Tree& tree, const std::string& name, const state::Interface& record) {
    const std::string directory = kDirectory + name;
    tree.write(directory + "/address", mac_text(record.mac) + "\n", 0444);
    tree.write(directory + "/mtu", std::to_string(record.mtu) + "\n", 0644);
    tree.write(directory + "/ifindex", std::to_string(record.index) + "\n", 0444);
    tree.write(directory + "/operstate", (record.flags & IFF_UP) != 0 ? "up\n" : "down\n", 0444);
    const std::string device = std::string("/sys/bus/pci/devices/") + record.bus_info;
    if (record.bus_info[0] != '\0' && tree.exists(device)) {
        tree.make_link(
            directory + "/device", "../../../bus/pci/devices/" + std::string(record.bus_info));
    }
}

}  // namespace

state::Interface& interface_record(state::Network& network, std::string_view interface_name) {
    const std::uint32_t slot = find_slot(network, interface_name);
    if (slot == network.count) {
        throw std::invalid_argument(
            "the host has no interface \"" + std::string(interface_name) + "\"");
    }
    return network.interfaces[slot];
}

void Host::interface(const Interface& interface) {
    state::Network& network = *state_->network;
    check_name(interface.name);
    if (find_slot(network, interface.name) != network.count) {
        throw std::invalid_argument("interface name " + interface.name + " is taken");
    }
    if (network.count == state::kMostInterfaces) {
        throw std::invalid_argument("the host is full of interfaces");
    }
    const std::uint32_t slot = network.count;
    network.interfaces[slot] = make_record(interface, slot + 1);
    write_nic(network, network.interfaces[slot], interface.nic);
    copy_field(network.names[slot], interface.name, "interface name");
    ++network.count;
    write_directory(state_->tree, interface.name, network.interfaces[slot]);
}

void Host::remove_interface(std::string_view name) {
    state::Network& network = *state_->network;
    static_cast<void>(interface_record(network, name));
    const std::uint32_t slot = find_slot(network, name);
    std::memset(network.names[slot], 0, sizeof network.names[slot]);
    state_->tree.remove(kDirectory + std::string(name));
}

unsigned Host::mtu(std::string_view interface_name) const {
    return interface_record(*state_->network, interface_name).mtu;
}

void Host::refuse(std::string_view interface_name, std::uint32_t command, int error) {
    state::Interface& record = interface_record(*state_->network, interface_name);
    std::uint32_t place = 0;
    while (place < record.refusal_count && record.refusals[place].command != command) {
        ++place;
    }
    if (place == state::kMostRefusals) {
        throw std::invalid_argument("too many refusals of one interface");
    }
    record.refusals[place] = {command, error};
    record.refusal_count = std::max(record.refusal_count, place + 1);
}

}  // namespace kxsim
