// Parts of the commands that set settings: the settings that each knows, what a card must have, and
// the option of a change that waits to be confirmed.
#pragma once

#include <kxlinhw/records.h>

#include <span>

#include "cli/command.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {

inline const Argument kConfirmWithin{
    .name = "--confirm-within",
    .help = "Take the change back unless \"kxctl confirm\" comes within this time (90s, 5min, 1h)",
    .value = "TIME",
};

}  // namespace kx::ctl

namespace kx::ctl::offload {

inline constexpr std::uint8_t kNoControlFiles = 2;  // the state of a card's parameters

[[nodiscard]] std::span<const Setting> settings();

// Throws the failure of a card that has no offload engine.
void must_have_engine(const CardInfo& card);

}  // namespace kx::ctl::offload

namespace kx::ctl::iwarp {

[[nodiscard]] std::span<const Setting> settings();

}  // namespace kx::ctl::iwarp
