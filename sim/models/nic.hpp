// The drivers of the network interfaces: requests by interface name.
#pragma once

#include <net/if.h>

#include <cstdint>

#include "process/attached.hpp"

namespace kxsim::models {

// Whether a request names an interface, and so is answered here and never by the kernel.
[[nodiscard]] bool is_interface_request(unsigned long request);

// The request: an ethtool command, or the number of another request.
[[nodiscard]] std::uint32_t command_of(unsigned long request, const ifreq& asked);

// Answer an interface request. Returns an errno, or 0.
[[nodiscard]] int answer(process::Host& host, unsigned long request, ifreq& asked);

// Find an interface by a name of at most 15 characters; null when the host has no such interface.
[[nodiscard]] state::Interface* find_interface(state::Network& network, const char* name);

}  // namespace kxsim::models
