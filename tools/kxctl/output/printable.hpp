// Makes texts of drivers and module files safe for a terminal.
#pragma once

#include <locale.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace kx::ctl {

// The text as valid UTF-8 in one line: bytes that are not UTF-8 and control characters (which could
// move the cursor or change the terminal's state) become U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

// A JSON value with escapes in place of those characters, which occur in its strings only.
[[nodiscard]] std::string printable_json(std::string_view json);

// While this object exists, the C library reads texts as UTF-8, whatever the locale of the user is.
class Utf8Texts {
public:
    Utf8Texts();
    ~Utf8Texts();
    Utf8Texts(const Utf8Texts&) = delete;
    Utf8Texts& operator=(const Utf8Texts&) = delete;

private:
    locale_t before_;
};

// A printable text that fits this many terminal columns: what is cut ends in "…".
[[nodiscard]] std::string shortened(std::string_view text, std::size_t width);

// The width of a printable text in terminal columns.
[[nodiscard]] std::size_t display_width(std::string_view text);

}  // namespace kx::ctl
