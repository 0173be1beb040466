// Addresses and MTU of an interface.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/status.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "inventory/paths.hpp"
#include "support/cached_reading.hpp"
#include "support/handle.hpp"
#include "support/small_file.hpp"
#include "support/standard_streams.hpp"
#include "support/text.hpp"

namespace {

constexpr std::size_t kLongestMac = 31;  // characters read of the kernel's files
constexpr std::size_t kLongestMtu = 19;

using AddressList = kx::Handle<ifaddrs, &freeifaddrs>;

// The texts of the last address of each family; for IPv6 the last address that fits its field.
struct Addresses {
    std::string ipv4;
    std::string netmask;
    std::string ipv6;
};

template <class SocketAddress>
SocketAddress read_address(const sockaddr& address) {
    SocketAddress copy;
    std::memcpy(&copy, &address, sizeof copy);
    return copy;
}

std::string ipv4_text(const sockaddr& address) {
    char text[INET_ADDRSTRLEN] = "";
    const in_addr bytes = read_address<sockaddr_in>(address).sin_addr;
    return inet_ntop(AF_INET, &bytes, text, sizeof text) == nullptr ? "" : text;
}

// Nothing when the text does not fit the field of a port: a cut text would often be the address of
// another host.
std::optional<std::string> ipv6_text(const sockaddr& address) {
    char text[sizeof PortInfo::ipv6_address];
    const in6_addr bytes = read_address<sockaddr_in6>(address).sin6_addr;
    const bool fits = inet_ntop(AF_INET6, &bytes, text, sizeof text) != nullptr;
    return fits ? std::optional<std::string>(text) : std::nullopt;
}

// The addresses of all interfaces, by name. The cost of a lookup does not depend on their number.
class AddressTable {
public:
    AddressTable() {
        ifaddrs* first = nullptr;
        {
            const kx::StandardStreamGuard streams;  // it opens a socket
            readable_ = streams && getifaddrs(&first) == 0;
        }
        const AddressList list(readable_ ? first : nullptr);
        empty_ = list == nullptr;
        for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
            if (entry->ifa_addr != nullptr) {
                add(entry->ifa_name, *entry);
            }
        }
    }

    [[nodiscard]] bool readable() const { return readable_; }
    [[nodiscard]] bool empty() const { return empty_; }

    [[nodiscard]] Addresses find(const char* interface_name) const {
        const auto found = by_name_.find(interface_name);
        return found == by_name_.end() ? Addresses{} : found->second;
    }

private:
    // Interfaces without an address of either family need no place in the table.
    void add(const char* interface_name, const ifaddrs& entry) {
        if (entry.ifa_addr->sa_family == AF_INET) {
            Addresses& addresses = by_name_[interface_name];
            addresses.ipv4 = ipv4_text(*entry.ifa_addr);
            if (entry.ifa_netmask != nullptr) {
                addresses.netmask = ipv4_text(*entry.ifa_netmask);
            }
        } else if (entry.ifa_addr->sa_family == AF_INET6) {
            if (auto text = ipv6_text(*entry.ifa_addr)) {
                by_name_[interface_name].ipv6 = std::move(*text);
            }
        }
    }

    bool readable_;
    bool empty_;
    std::unordered_map<std::string, Addresses> by_name_;
};

kx::CachedReading<AddressTable> address_table;

void copy_addresses(const AddressTable& table, const char* interface_name, PortInfo& port) {
    if (table.empty()) {
        return;  // without an entry, the fields of the port do not change
    }
    const Addresses addresses = table.find(interface_name);
    kx::copy_text(port.ipv4_address, addresses.ipv4);
    kx::copy_text(port.ipv4_netmask, addresses.netmask);
    kx::copy_text(port.ipv6_address, addresses.ipv6);
}

// Copy the first line of a file of the interface into a field. When the file is missing or empty,
// the field does not change.
template <std::size_t N>
void copy_first_line(
    const char* interface_name, const char* file, std::size_t longest, char (&field)[N]) {
    const std::string path =
        std::string(kx::inventory::kInterfaces) + "/" + interface_name + "/" + file;
    const auto content = kx::read_value_file(path.c_str(), longest);
    if (!content || content->empty()) {
        return;
    }
    const std::string_view text = kx::c_text(*content);
    kx::copy_text(field, text.substr(0, text.find('\n')));
}

}  // namespace

extern "C" {

uint32_t getAddress(const char* interface_name, PortInfo* port) try {
    if (interface_name == nullptr || port == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const AddressTable& table = address_table.get([] { return AddressTable(); });
    if (!table.readable()) {
        return KX_UNKNOWN_ERROR;
    }
    copy_addresses(table, interface_name, *port);
    copy_first_line(interface_name, "address", kLongestMac, port->mac);
    copy_first_line(interface_name, "mtu", kLongestMtu, port->settings.mtu);
    return KX_SUCCESS;
} catch (const std::bad_alloc&) {
    return KX_UNKNOWN_ERROR;
}

}  // extern "C"
