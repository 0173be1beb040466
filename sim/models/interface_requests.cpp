// Trigger: a reading request of an interface that is not the driver's: index, flags, MTU, hardware
// address, IPv4 addresses. Effect: the answer comes from the interface's record, as those of
// getifaddrs do. What can be made to fail: each request of each interface, by a refusal.
//
// To add a request, add a row to kRows.
#include "models/interface_requests.hpp"

#include <linux/sockios.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "process/attached.hpp"

namespace kxsim::models {
namespace {

using state::Address;
using state::Interface;
using state::Network;

constexpr int kUsualQueue = 1000;  // packets that wait for an Ethernet interface

const Address* first_ipv4(const Interface& interface) {
    const Address* const end = interface.addresses + interface.address_count;
    const Address* const found = std::find_if(
        interface.addresses, end, [](const Address& each) { return each.family == AF_INET; });
    return found == end ? nullptr : found;
}

in_addr_t mask_of(const Address& address) {
    const unsigned prefix = address.has_netmask != 0 ? address.prefix : 0U;
    return prefix == 0 ? 0 : htonl(~std::uint32_t{0} << (32 - std::min(prefix, 32U)));
}

void put_ipv4(sockaddr& place, in_addr_t address) {
    sockaddr_in text{};
    text.sin_family = AF_INET;
    text.sin_addr.s_addr = address;
    static_assert(sizeof text == sizeof place);
    std::memcpy(&place, &text, sizeof text);
}

int get_index(const Interface& interface, ifreq& asked) {
    asked.ifr_ifindex = static_cast<int>(interface.index);
    return 0;
}

int get_flags(const Interface& interface, ifreq& asked) {
    asked.ifr_flags = static_cast<short>(interface.flags);
    return 0;
}

int get_metric(const Interface& /*interface*/, ifreq& asked) {
    asked.ifr_metric = 0;
    return 0;
}

int get_mtu(const Interface& interface, ifreq& asked) {
    asked.ifr_mtu = static_cast<int>(interface.mtu);
    return 0;
}

int get_queue(const Interface& /*interface*/, ifreq& asked) {
    asked.ifr_qlen = kUsualQueue;
    return 0;
}

int get_map(const Interface& /*interface*/, ifreq& asked) {
    asked.ifr_map = {};
    return 0;
}

int get_hardware_address(const Interface& interface, ifreq& asked) {
    asked.ifr_hwaddr = {};
    asked.ifr_hwaddr.sa_family =
        (interface.flags & IFF_LOOPBACK) != 0 ? ARPHRD_LOOPBACK : ARPHRD_ETHER;
    std::memcpy(asked.ifr_hwaddr.sa_data, interface.mac, sizeof interface.mac);
    return 0;
}

// Requests about the first IPv4 address.
template <in_addr_t (*kPart)(const Address&)>
int get_ipv4(const Interface& interface, ifreq& asked) {
    const Address* const address = first_ipv4(interface);
    if (address == nullptr) {
        return EADDRNOTAVAIL;
    }
    put_ipv4(asked.ifr_addr, kPart(*address));
    return 0;
}

in_addr_t address_of(const Address& address) { return address.ipv4.s_addr; }

in_addr_t broadcast_of(const Address& address) { return address.ipv4.s_addr | ~mask_of(address); }

struct Row {
    std::uint32_t request;
    int (*run)(const Interface& interface, ifreq& asked);
};

constexpr Row kRows[] = {
    {SIOCGIFFLAGS, get_flags},
    {SIOCGIFADDR, get_ipv4<address_of>},
    {SIOCGIFDSTADDR, get_ipv4<address_of>},
    {SIOCGIFBRDADDR, get_ipv4<broadcast_of>},
    {SIOCGIFNETMASK, get_ipv4<mask_of>},
    {SIOCGIFMETRIC, get_metric},
    {SIOCGIFMTU, get_mtu},
    {SIOCGIFHWADDR, get_hardware_address},
    {SIOCGIFINDEX, get_index},
    {SIOCGIFTXQLEN, get_queue},
    {SIOCGIFMAP, get_map},
};

const Row* find_row(std::uint32_t request) {
    for (const Row& row : kRows) {
        if (row.request == request) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

bool reads_interface(std::uint32_t request) { return find_row(request) != nullptr; }

int read_interface(const Interface& interface, std::uint32_t request, ifreq& asked) {
    const Row* const row = find_row(request);
    return row == nullptr ? EOPNOTSUPP : row->run(interface, asked);
}

int name_interface(const Network& network, ifreq& asked) {
    for (std::uint32_t i = 0; i < network.count; ++i) {
        if (network.names[i][0] != '\0' &&
            static_cast<int>(network.interfaces[i].index) == asked.ifr_ifindex) {
            std::memcpy(asked.ifr_name, network.names[i], sizeof asked.ifr_name);
            return 0;
        }
    }
    return ENODEV;
}

void list_interfaces(const Network& network, ifconf& list) {
    const bool counts = list.ifc_req == nullptr;  // the caller asks for the room that it needs
    const std::size_t room =
        counts || list.ifc_len < 0 ? 0 : static_cast<std::size_t>(list.ifc_len);
    std::size_t used = 0;
    for (std::uint32_t i = 0; i < network.count; ++i) {
        const Interface& interface = network.interfaces[i];
        for (std::uint32_t k = 0; network.names[i][0] != '\0' && k < interface.address_count; ++k) {
            if (interface.addresses[k].family != AF_INET ||
                (!counts && used + sizeof(ifreq) > room)) {
                continue;
            }
            if (!counts) {
                ifreq entry{};
                std::memcpy(entry.ifr_name, network.names[i], sizeof entry.ifr_name);
                put_ipv4(entry.ifr_addr, interface.addresses[k].ipv4.s_addr);
                std::memcpy(list.ifc_buf + used, &entry, sizeof entry);
            }
            used += sizeof(ifreq);
        }
    }
    list.ifc_len = static_cast<int>(used);
}

struct if_nameindex* index_interfaces(const Network& network) {
    const process::Pause pause;  // does not count as an allocation of the caller
    auto* const list = static_cast<struct if_nameindex*>(
        std::calloc(network.count + 1, sizeof(struct if_nameindex)));
    std::size_t place = 0;
    for (std::uint32_t i = 0; list != nullptr && i < network.count; ++i) {
        if (network.names[i][0] == '\0') {
            continue;
        }
        auto* const name = static_cast<char*>(std::calloc(1, state::kNameSize));
        if (name == nullptr) {
            break;
        }
        std::memcpy(name, network.names[i], state::kNameSize);
        list[place++] = {network.interfaces[i].index, name};
    }
    return list;
}

}  // namespace kxsim::models
