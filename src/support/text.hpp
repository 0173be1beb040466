// Bounded text: copying into fixed fields, and reading fields that may have no NUL.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace kx {

// The text of a field, which ends at its NUL or at the field's end.
[[nodiscard]] inline std::string_view field_text(const char* field, std::size_t size) {
    return {field, strnlen(field, size)};
}

template <std::size_t N>
[[nodiscard]] std::string_view field_text(const char (&field)[N]) {
    return field_text(field, N);
}

// The text of a field, with a NUL, for functions that need one.
template <std::size_t N>
class TerminatedText {
public:
    explicit TerminatedText(const char (&field)[N]) { std::memcpy(text_, field, N); }
    [[nodiscard]] const char* c_str() const { return text_; }

private:
    char text_[N + 1]{};
};

// Copy a text into a field, cut so that its NUL fits; the bytes after it become zero.
template <std::size_t N>
void copy_text(char (&field)[N], std::string_view text) {
    const std::size_t length = std::min(text.size(), N - 1);
    text.copy(field, length);  // an empty text may have no address
    std::memset(field + length, 0, N - length);
}

// strncmp(a, b, bound) == 0 for two texts, each of which may end before the bound.
[[nodiscard]] inline bool equal_over(std::string_view a, std::string_view b, std::size_t bound) {
    return a.substr(0, bound) == b.substr(0, bound);
}

// Cut a text at its first NUL: the part that C functions would see.
[[nodiscard]] inline std::string_view c_text(std::string_view bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

}  // namespace kx
