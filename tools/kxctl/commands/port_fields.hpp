// The fields of a port in the output of commands.
#pragma once

#include <kxlinhw/records.h>

#include <string>
#include <string_view>

#include "output/json.hpp"
#include "output/table.hpp"
#include "settings/port_settings.hpp"

namespace kx::ctl {

[[nodiscard]] Cell link_cell(const PortInfo& port);

// The value of a setting as text; empty when the driver does not know it.
[[nodiscard]] std::string setting_text(const Setting& setting, const PortInfo& port);
[[nodiscard]] std::string setting_text(std::string_view key, const PortInfo& port);

// The fields of a port in a list.
[[nodiscard]] Json summary_json(const PortInfo& port);

// Everything about one port.
[[nodiscard]] Json complete_json(const PortInfo& port);

}  // namespace kx::ctl
