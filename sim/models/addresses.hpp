// The list of addresses that getifaddrs returns.
#pragma once

#include <ifaddrs.h>

#include "state/network.hpp"

namespace kxsim::models {

// The kernel's order: an entry of the link for each interface, then all IPv4 addresses, then all
// IPv6 addresses. One block of the C allocator, as the C library makes it, so that its freeifaddrs
// releases it. Null when there is no interface or no memory.
[[nodiscard]] ifaddrs* list_addresses(const state::Network& network);

}  // namespace kxsim::models
