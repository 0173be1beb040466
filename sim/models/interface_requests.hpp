// The requests of network interfaces that the kernel, not a driver, answers.
#pragma once

#include <net/if.h>

#include <cstdint>

#include "state/network.hpp"

namespace kxsim::models {

// Answer a request about one interface (SIOCGIFMTU, SIOCGIFADDR, ...). Returns an errno, or 0.
[[nodiscard]] int read_interface(
    const state::Interface& interface, std::uint32_t request, ifreq& asked);

// Whether read_interface answers a request.
[[nodiscard]] bool reads_interface(std::uint32_t request);

// SIOCGIFNAME: the name that belongs to the index. Returns an errno, or 0.
[[nodiscard]] int name_interface(const state::Network& network, ifreq& asked);

// SIOCGIFCONF: the IPv4 addresses of all interfaces, as many as fit.
void list_interfaces(const state::Network& network, ifconf& list);

// What if_nameindex returns, for if_freenameindex of the C library. Null when there is no memory.
[[nodiscard]] struct if_nameindex* index_interfaces(const state::Network& network);

}  // namespace kxsim::models
