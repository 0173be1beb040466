// SHA-256 digests, as sha256sum(1) prints them.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kx::ctl {

// 64 hexadecimal digits. Loads libmd at the first use; throws Failure when it is missing.
[[nodiscard]] std::string sha256(std::span<const std::uint8_t> bytes);

}  // namespace kx::ctl
