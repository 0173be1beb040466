// The drivers of the network interfaces: requests by interface name.
#pragma once

#include <net/if.h>

#include <cstdint>

#include "process/attached.hpp"

namespace kxsim::models {

// Whether a request is about network interfaces, and so never reaches the kernel.
[[nodiscard]] bool is_interface_request(unsigned long request);

// Whether a request carries an ifreq with the name of an interface, and is answered by answer().
[[nodiscard]] bool names_interface(unsigned long request);

// The request: an ethtool command, or the number of another request.
[[nodiscard]] std::uint32_t command_of(unsigned long request, const ifreq& asked);

// Answer an interface request. Returns an errno, or 0.
[[nodiscard]] int answer(process::Host& host, unsigned long request, ifreq& asked);

// Find an interface by a name of at most 15 characters; null when the host has no such interface.
[[nodiscard]] state::Interface* find_interface(state::Network& network, const char* name);

}  // namespace kxsim::models
