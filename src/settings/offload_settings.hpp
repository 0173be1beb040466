// The offload settings of a card, as one step of setCardParams.
#pragma once

#include <kxlinhw/records.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace kx::settings {

// Sets the card that messages about offload settings name, until the next call.
void name_card_in_messages(std::string_view name);

// Apply the offload settings of mask: 0, or 70 when one failed. Nothing when the card has no
// offload engine, no offload device or no control files; the detail text then contains only the
// reason. Without a device nothing is written, not even the activation.
[[nodiscard]] std::optional<uint32_t> apply_offload_settings(CardInfo& card, uint32_t mask);

}  // namespace kx::settings
