// Makes texts of drivers and module files safe for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kx::ctl {

// The text as valid UTF-8 in one line: bytes that are not UTF-8 and control characters (which could
// move the cursor or change the terminal's state) become U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

// A JSON value with escapes in place of those characters, which occur in its strings only.
[[nodiscard]] std::string printable_json(std::string_view json);

// The width of a printable text in terminal columns.
[[nodiscard]] std::size_t display_width(std::string_view text);

}  // namespace kx::ctl
