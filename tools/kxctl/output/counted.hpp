// Numbers of things in sentences.
#pragma once

#include <fmt/core.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::ctl {

// "1 setting", "2 settings".
[[nodiscard]] inline std::string counted(std::uint64_t count, std::string_view one) {
    return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

}  // namespace kx::ctl
