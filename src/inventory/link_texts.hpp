// The texts that describe a driver's link settings to agents.
#pragma once

#include <cstdint>
#include <string>

namespace kx::inventory {

// Connectors of a supported mask, each followed by a blank; "N/A" when the mask contains none.
[[nodiscard]] std::string connector_list_text(uint32_t supported);

// Link modes of a supported mask; "Not Reported" when the mask contains none.
[[nodiscard]] std::string supported_modes_text(uint32_t supported);

// Link modes of an advertising mask; "Not reported" when the mask contains none.
[[nodiscard]] std::string advertised_modes_text(uint32_t advertising);

// The current connector, from the driver's port byte.
[[nodiscard]] std::string connector_text(uint8_t port);

[[nodiscard]] const char* transceiver_text(uint8_t transceiver);

// A letter for each wake-on-LAN mode; "d" (disabled) for an empty mask.
[[nodiscard]] std::string wake_letters(uint32_t modes);

}  // namespace kx::inventory
