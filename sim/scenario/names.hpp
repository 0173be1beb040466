// Numbers that scenarios write as names of the C library's and the kernel's headers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kxsim {

// "EBUSY"
[[nodiscard]] std::optional<int> error_number(const std::string& name);

// "ETHTOOL_GSET", "SIOCSIFMTU"
[[nodiscard]] std::optional<std::uint32_t> request_number(const std::string& name);

}  // namespace kxsim
