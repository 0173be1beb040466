// A port with what its record has no room for: what its driver answered, all its IPv6 addresses.
#pragma once

#include <kxlinhw/records.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "library/host_watch.hpp"

namespace kx::ctl {

struct Ipv6Address {
    std::string address;
    std::uint32_t prefix_length;
    const char* scope;  // "global", "link", "site" or "host"
};

struct Port : PortInfo {
    DriverAnswers answers;
    // In the kernel's order; nothing when they could not be read.
    std::optional<std::vector<Ipv6Address>> ipv6_addresses;

    // Whether the driver answered such a request (ETHTOOL_GSET).
    [[nodiscard]] bool answered(std::uint32_t command) const {
        return answers.to(command) == Answered::kGiven;
    }
    // Why answers to these requests are missing; a request that the driver does not have has none.
    [[nodiscard]] std::vector<std::string> unread(
        std::initializer_list<std::uint32_t> commands) const;
};

// The ports of the records that a query returned just now.
[[nodiscard]] std::vector<Port> ports_of(const std::vector<PortInfo>& records);

}  // namespace kx::ctl
