// Network interfaces: the records with their drivers' answers, and their directories.
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "host/host_state.hpp"
#include "host/interface_text.hpp"
#include "host/pci_function.hpp"
#include "state/requests.hpp"

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

// Texts of drivers may fill their fields without a NUL.
template <std::size_t N>
void copy_driver_text(char (&field)[N], const std::string& text, const char* what) {
    if (text.size() > N) {
        throw std::invalid_argument(std::string(what) + " \"" + text + "\" is too long");
    }
    text.copy(field, N);
}

state::Interface make_record(const Interface& interface, std::uint32_t index) {
    state::Interface record{};
    copy_field(record.driver, interface.driver, "driver name");
    copy_field(record.driver_version, interface.driver_version, "driver version");
    copy_driver_text(record.bus_info, interface.bus_info, "bus information");
    copy_driver_text(record.firmware, interface.firmware, "firmware text");
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

void write_directory(Tree& tree, const std::string& name, const state::Interface& record) {
    const std::string directory = kDirectory + name;
    tree.write(directory + "/address", mac_text(record.mac) + "\n", 0444);
    tree.write(directory + "/mtu", std::to_string(record.mtu) + "\n", 0644);
    tree.write(directory + "/ifindex", std::to_string(record.index) + "\n", 0444);
    tree.write(directory + "/operstate", (record.flags & IFF_UP) != 0 ? "up\n" : "down\n", 0444);
    const std::string bus(record.bus_info, strnlen(record.bus_info, sizeof record.bus_info));
    if (!bus.empty() && tree.exists("/sys/bus/pci/devices/" + bus)) {
        tree.make_link(directory + "/device", "../../../bus/pci/devices/" + bus);
    }
}

void set_refusal(state::Interface& record, const state::Refusal& refusal) {
    std::uint32_t place = 0;
    while (place < record.refusal_count && record.refusals[place].command != refusal.command) {
        ++place;
    }
    if (place == state::kMostRefusals) {
        throw std::invalid_argument("too many refusals of one interface");
    }
    record.refusals[place] = refusal;
    record.refusal_count = std::max(record.refusal_count, place + 1);
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
    check_interface_name(interface.name);
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

void Host::port(std::string_view location, const Interface& port) {
    const Location at = Location::parse(std::string(location));
    if (!state_->tree.exists(at.directory())) {
        throw std::invalid_argument("there is no adapter at " + at.full());
    }
    Interface complete = port;
    if (complete.bus_info.empty()) {
        complete.bus_info = at.full();
    }
    if (complete.driver.empty()) {
        complete.driver = bound_driver(state_->tree, at);
    }
    interface(complete);
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
    set_refusal(interface_record(*state_->network, interface_name), {command, error});
}

void Host::ignore(std::string_view interface_name, std::uint32_t command) {
    const state::Request* const request = state::find_request(command);
    if (request == nullptr || !state::may_be_ignored(*request)) {
        throw std::invalid_argument(
            "request is \"" + std::string(request == nullptr ? "" : request->name) +
            "\", expected one that changes something");
    }
    set_refusal(interface_record(*state_->network, interface_name), {command, state::kIgnored});
}

}  // namespace kxsim
