// The fields of a port as commands show them.
#pragma once

#include <kxlinhw/records.h>

#include <string>

#include "output/json.hpp"
#include "output/table.hpp"

namespace kx::ctl {

[[nodiscard]] Cell link_cell(const PortInfo& port);

// In Mb/s; empty when the driver does not know it.
[[nodiscard]] std::string speed_text(const PortInfo& port);

// "full" or "half"; empty when the driver does not know it.
[[nodiscard]] std::string duplex_text(const PortInfo& port);

// The fields of a port in a list.
[[nodiscard]] Json summary_json(const PortInfo& port);

// Everything about one port.
[[nodiscard]] Json complete_json(const PortInfo& port);

}  // namespace kx::ctl
