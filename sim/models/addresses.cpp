#include "models/addresses.hpp"

#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

#include "process/attached.hpp"

namespace kxsim::models {
namespace {

using state::Address;
using state::Interface;
using state::Network;

// An entry with everything that its pointers point to.
struct Entry {
    ifaddrs head;
    char name[state::kNameSize];
    sockaddr_storage address;
    sockaddr_storage netmask;
};

template <class SocketAddress>
void put(sockaddr_storage& place, const SocketAddress& address) {
    std::memcpy(&place, &address, sizeof address);
}

sockaddr_ll link_address(const Interface& interface) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(interface.index);
    address.sll_hatype = (interface.flags & IFF_LOOPBACK) != 0 ? ARPHRD_LOOPBACK : ARPHRD_ETHER;
    address.sll_halen = sizeof interface.mac;
    std::memcpy(address.sll_addr, interface.mac, sizeof interface.mac);
    return address;
}

sockaddr_in ipv4_address(in_addr address) {
    sockaddr_in text{};
    text.sin_family = AF_INET;
    text.sin_addr = address;
    return text;
}

sockaddr_in6 ipv6_address(const in6_addr& address, std::uint32_t scope) {
    sockaddr_in6 text{};
    text.sin6_family = AF_INET6;
    text.sin6_addr = address;
    text.sin6_scope_id = IN6_IS_ADDR_LINKLOCAL(&address) ? scope : 0;
    return text;
}

// A mask whose first bits are set.
template <class Mask>
Mask mask_of(unsigned prefix) {
    Mask mask{};
    auto* const bytes = reinterpret_cast<unsigned char*>(&mask);
    for (unsigned bit = 0; bit < prefix && bit < 8 * sizeof mask; ++bit) {
        bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] | (0x80U >> (bit % 8)));
    }
    return mask;
}

void fill_address(Entry& entry, const Address& address, std::uint32_t index) {
    if (address.family == AF_INET) {
        put(entry.address, ipv4_address(address.ipv4));
        put(entry.netmask, ipv4_address(mask_of<in_addr>(address.prefix)));
    } else {
        put(entry.address, ipv6_address(address.ipv6, index));
        put(entry.netmask, ipv6_address(mask_of<in6_addr>(address.prefix), 0));
    }
    entry.head.ifa_addr = reinterpret_cast<sockaddr*>(&entry.address);
    entry.head.ifa_netmask =
        address.has_netmask != 0 ? reinterpret_cast<sockaddr*>(&entry.netmask) : nullptr;
}

void fill_link(Entry& entry, const Interface& interface) {
    put(entry.address, link_address(interface));
    entry.head.ifa_addr = reinterpret_cast<sockaddr*>(&entry.address);
}

// Called for each entry of the list, in order; the address is null for a link.
template <class Visit>
void for_each_entry(const Network& network, Visit visit) {
    const auto for_each_interface = [&](auto each) {
        for (std::uint32_t i = 0; i < network.count; ++i) {
            if (network.names[i][0] != '\0') {
                each(i);
            }
        }
    };
    for_each_interface([&](std::uint32_t i) { visit(i, nullptr); });
    for (const int family : {AF_INET, AF_INET6}) {
        for_each_interface([&](std::uint32_t i) {
            const Interface& interface = network.interfaces[i];
            for (std::uint32_t k = 0; k < interface.address_count; ++k) {
                if (interface.addresses[k].family == family) {
                    visit(i, &interface.addresses[k]);
                }
            }
        });
    }
}

Entry* allocate(std::size_t count) {
    const process::Pause pause;  // does not count as an allocation of the caller
    return static_cast<Entry*>(std::calloc(count, sizeof(Entry)));
}

}  // namespace

ifaddrs* list_addresses(const Network& network) {
    std::size_t count = 0;
    for_each_entry(network, [&](std::uint32_t, const Address*) { ++count; });
    Entry* const entries = count == 0 ? nullptr : allocate(count);
    if (entries == nullptr) {
        return nullptr;
    }
    static_assert(offsetof(Entry, head) == 0, "the block is freed through its first entry's head");
    std::size_t place = 0;
    for_each_entry(network, [&](std::uint32_t i, const Address* address) {
        Entry& entry = entries[place++];
        std::memcpy(entry.name, network.names[i], sizeof entry.name);
        entry.head.ifa_name = entry.name;
        entry.head.ifa_flags = network.interfaces[i].flags;
        if (address == nullptr) {
            fill_link(entry, network.interfaces[i]);
        } else {
            fill_address(entry, *address, network.interfaces[i].index);
        }
        entry.head.ifa_next = place < count ? &entries[place].head : nullptr;
    });
    return &entries->head;
}

}  // namespace kxsim::models
