// Parts of the commands that set settings: the settings that each knows, what a card must have, and
// the messages of a failure.
#pragma once

#include <kxlinhw/records.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "settings/setting.hpp"

namespace kx::ctl::port {

// The messages of a failed set call, one for each setting. The message about the MTU has no ";" at
// its end.
[[nodiscard]] std::vector<std::string> split_set_messages(std::string_view text);

}  // namespace kx::ctl::port

namespace kx::ctl::offload {

[[nodiscard]] std::span<const Setting> settings();

// Throws the failure of a card that has no offload engine.
void must_have_engine(const CardInfo& card);

}  // namespace kx::ctl::offload

namespace kx::ctl::iwarp {

[[nodiscard]] std::span<const Setting> settings();

}  // namespace kx::ctl::iwarp
