// The fields of a port in the output of commands.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "library/port.hpp"
#include "output/incomplete.hpp"
#include "output/json.hpp"
#include "output/table.hpp"
#include "settings/port_settings.hpp"
#include "settings/port_values.hpp"

namespace kx::ctl {

[[nodiscard]] Cell link_cell(const Port& port);

[[nodiscard]] std::optional<std::uint32_t> known_phy_address(const Port& port);

// The value of a setting as text; empty when the driver does not tell it.
[[nodiscard]] std::string setting_text(const Setting& setting, const Port& port);
[[nodiscard]] std::string setting_text(std::string_view key, const Port& port);

// The fields of a port in a list.
[[nodiscard]] Json summary_json(const Port& port);

// Everything about one port.
[[nodiscard]] Json complete_json(const Port& port);

// What of these fields could not be read.
void add_unread_summary(const Port& port, Incomplete& incomplete);
void add_unread_fields(const Port& port, Incomplete& incomplete);

}  // namespace kx::ctl
