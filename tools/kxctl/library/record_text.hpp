// Texts of the library's records. A text ends at its NUL or, when it fills its field, at the
// field's end; nothing is ever read past the field.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "output/json.hpp"

namespace kx::ctl {

// The text of a field, without the blanks at the end of some of the library's lists. A copy,
// because a field exists only as long as its record.
template <std::size_t N>
[[nodiscard]] std::string field_text(const char (&field)[N]) {
    const std::string_view text(field, strnlen(field, N));
    return std::string(text.substr(0, text.find_last_not_of(' ') + 1));
}

// A text for JSON: null when there is none.
[[nodiscard]] inline Json text_or_null(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

}  // namespace kx::ctl
