// Texts of drivers and module files, made fit for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kx::ctl {

// The text as valid UTF-8 in one line: bytes that are no UTF-8 and control characters (which could
// move the cursor or change the terminal's state) become U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

// How many terminal columns a printable text takes.
[[nodiscard]] std::size_t display_width(std::string_view text);

}  // namespace kx::ctl
