// Values of a port's settings, as far as its driver tells them.
#pragma once

#include <cstdint>
#include <optional>

#include "library/port.hpp"
#include "settings/setting.hpp"

namespace kx::ctl {

// Nothing when the driver did not answer the request.
[[nodiscard]] std::optional<std::int64_t> known_value(const Setting& setting, const Port& port);
[[nodiscard]] std::optional<std::int64_t> known_limit(const Setting& setting, const Port& port);

}  // namespace kx::ctl
