// The table of port settings. The row of a setting contains everything about it; commands, help,
// pages and schemas use the rows.
#pragma once

#include <span>
#include <string_view>

#include "settings/setting.hpp"

namespace kx::ctl {

// In the order in which the library applies them. Fields are those of PortSettings.
[[nodiscard]] std::span<const Setting> port_settings();

// The setting with a key of the table.
[[nodiscard]] const Setting& port_setting(std::string_view key);

// The setting with a key of the file of saved settings, or null.
[[nodiscard]] const Setting* saved_port_setting(std::string_view saved_as);

// The first setting with the same change bit. It and the others are set and saved together, as
// speed and duplex are with auto-negotiation.
[[nodiscard]] const Setting& leader_of(const Setting& setting);

// Whether one call of a setter sets both.
[[nodiscard]] bool set_together(const Setting& one, const Setting& other);

}  // namespace kx::ctl
