// The settings of a port.
#pragma once

#include <span>

#include "settings/setting.hpp"

namespace kx::ctl {

// In the order in which the library applies them. Fields are those of PortSettings.
[[nodiscard]] std::span<const Setting> port_settings();

}  // namespace kx::ctl
