// Parts of the commands that set settings: the settings that each knows, and what a card must have.
#pragma once

#include <kxlinhw/records.h>

#include <span>

#include "settings/setting.hpp"

namespace kx::ctl::offload {

inline constexpr std::uint8_t kNoControlFiles = 2;  // the state of a card's parameters

[[nodiscard]] std::span<const Setting> settings();

// Throws the failure of a card that has no offload engine.
void must_have_engine(const CardInfo& card);

}  // namespace kx::ctl::offload

namespace kx::ctl::iwarp {

[[nodiscard]] std::span<const Setting> settings();

}  // namespace kx::ctl::iwarp
