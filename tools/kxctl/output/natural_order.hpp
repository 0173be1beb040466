// The order of names in lists.
#pragma once

#include <compare>
#include <string_view>

namespace kx::ctl {

// Compares texts as people read them: a number counts as a whole, so that "eth2" is before "eth10".
// In PCI locations and addresses of hexadecimal numbers with ":" between them, letters are digits
// too; they are before other texts.
[[nodiscard]] std::weak_ordering natural_order(std::string_view left, std::string_view right);

}  // namespace kx::ctl
