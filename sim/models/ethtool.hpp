// The ethtool commands of a driver.
#pragma once

#include <cstdint>

#include "state/network.hpp"

namespace kxsim::models {

// Carry out a command; data is its record, whose first field is the command. Returns an errno, or
// 0; EOPNOTSUPP for a command that the driver does not know.
[[nodiscard]] int run_ethtool(
    state::Network& network, state::Interface& interface, std::uint32_t command, void* data);

}  // namespace kxsim::models
