// Functions about loaded modules that are not exported.
#pragma once

namespace kx::modules {

// Is neither Ethernet driver loaded? An unreadable module list counts as loaded.
[[nodiscard]] bool no_ethernet_driver_loaded();

}  // namespace kx::modules
