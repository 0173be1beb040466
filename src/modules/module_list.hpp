// Questions about loaded modules that are no exported functions.
#pragma once

namespace kx::modules {

// Is neither Ethernet driver loaded? An unreadable module list counts as loaded.
[[nodiscard]] bool no_ethernet_driver_loaded();

}  // namespace kx::modules
