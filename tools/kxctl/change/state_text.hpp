// The state of ports as the text of a state file (state_file.hpp).
#pragma once

#include <span>
#include <string>

#include "change/host_ports.hpp"

namespace kx::ctl {

// Each port is named by its MAC, which survives another interface name and another slot; by its
// interface where the MAC is unknown or several ports have it. Settings that the driver does not
// tell are left out.
[[nodiscard]] std::string state_text(std::span<const HostPort> ports);

}  // namespace kx::ctl
