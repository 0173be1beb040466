#include "library/port.hpp"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <bit>
#include <cstring>
#include <map>
#include <memory>

#include "library/record_text.hpp"

namespace kx::ctl {
namespace {

in6_addr bytes_of(const sockaddr& address) {
    sockaddr_in6 copy{};
    std::memcpy(&copy, &address, sizeof copy);
    return copy.sin6_addr;
}

std::uint32_t prefix_length_of(const sockaddr* netmask) {
    if (netmask == nullptr) {
        return 128;
    }
    const in6_addr mask = bytes_of(*netmask);
    std::uint32_t length = 0;
    for (const std::uint8_t byte : mask.s6_addr) {
        length += static_cast<std::uint32_t>(std::popcount(byte));
    }
    return length;
}

const char* scope_of(const in6_addr& address) {
    return IN6_IS_ADDR_LINKLOCAL(&address)   ? "link"
           : IN6_IS_ADDR_SITELOCAL(&address) ? "site"
           : IN6_IS_ADDR_LOOPBACK(&address)  ? "host"
                                             : "global";
}

Ipv6Address ipv6_of(const ifaddrs& entry) {
    const in6_addr bytes = bytes_of(*entry.ifa_addr);
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, &bytes, text, sizeof text);
    return {text, prefix_length_of(entry.ifa_netmask), scope_of(bytes)};
}

using AddressesByName = std::map<std::string, std::vector<Ipv6Address>, std::less<>>;

std::optional<AddressesByName> read_addresses() {
    const HostWatch watch;
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, freeifaddrs);
    AddressesByName addresses;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET6) {
            addresses[entry->ifa_name].push_back(ipv6_of(*entry));
        }
    }
    return addresses;
}

}  // namespace

std::vector<std::string> Port::unread(std::initializer_list<std::uint32_t> commands) const {
    std::vector<std::string> reasons;
    for (const std::uint32_t command : commands) {
        if (answers.to(command) == Answered::kUnread) {
            reasons.push_back(fmt::format(
                "{}: {}: {}", field_text(interface_name), request_text(command),
                std::strerror(answers.reason(command))));
        }
    }
    return reasons;
}

std::vector<Port> ports_of(const std::vector<PortInfo>& records) {
    std::vector<Port> ports;
    if (records.empty()) {
        return ports;
    }
    const auto addresses = read_addresses();
    for (const PortInfo& record : records) {
        const std::string name = field_text(record.interface_name);
        Port& port = ports.emplace_back(Port{record, driver_answers(name), std::nullopt});
        if (addresses) {
            const auto found = addresses->find(name);
            port.ipv6_addresses =
                found == addresses->end() ? std::vector<Ipv6Address>() : found->second;
        }
    }
    return ports;
}

}  // namespace kx::ctl
