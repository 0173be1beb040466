#include "output/printable.hpp"

#include <fmt/core.h>

#include <cstdint>
#include <cwchar>

namespace kx::ctl {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Character {
    char32_t code;
    std::size_t bytes;
};

// The smallest code of each sequence length: a sequence that is longer than needed is not UTF-8.
constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};

std::size_t sequence_length(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead < 0xE0) {
        return 2;
    }
    if (lead >= 0xE0 && lead < 0xF0) {
        return 3;
    }
    return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

bool is_scalar_value(char32_t code) { return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF); }

// The first character of a non-empty text; for a byte that starts no character, the replacement
// character.
Character decode(std::string_view text) {
    constexpr Character kInvalid{kReplacement, 1};
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = sequence_length(lead);
    if (length == 0 || length > text.size()) {
        return kInvalid;
    }
    char32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
    for (const char next : text.substr(1, length - 1)) {
        const auto byte = static_cast<unsigned char>(next);
        if ((byte & 0xC0U) != 0x80U) {
            return kInvalid;
        }
        code = (code << 6U) | (byte & 0x3FU);
    }
    return code >= kSmallest[length] && is_scalar_value(code) ? Character{code, length} : kInvalid;
}

bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x061C || code == 0x200E ||
           code == 0x200F ||                      // direction marks
           (code >= 0x2028 && code <= 0x202E) ||  // line separators, direction overrides
           (code >= 0x2066 && code <= 0x2069);
}

// The C library knows the widths of UTF-8 characters in this locale only, which every system has.
// Without it, only the alignment of other letters suffers.
locale_t utf8_locale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

std::size_t width_of(char32_t code) {
    const int width = wcwidth(static_cast<wchar_t>(code));
    return width < 0 ? 1 : static_cast<std::size_t>(width);
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Character character = decode(text);
        if (character.code == kReplacement || is_control(character.code)) {
            result += "\uFFFD";
        } else {
            result += text.substr(0, character.bytes);
        }
        text.remove_prefix(character.bytes);
    }
    return result;
}

std::string printable_json(std::string_view json) {
    std::string result;
    while (!json.empty()) {
        const Character character = decode(json);
        if (character.code >= 0x7F && is_control(character.code)) {
            result += fmt::format("\\u{:04x}", static_cast<std::uint32_t>(character.code));
        } else {
            result += json.substr(0, character.bytes);
        }
        json.remove_prefix(character.bytes);
    }
    return result;
}

Utf8Texts::Utf8Texts() : before_(uselocale(utf8_locale())) {}

Utf8Texts::~Utf8Texts() { uselocale(before_); }

std::size_t display_width(std::string_view text) {
    const Utf8Texts utf8;
    std::size_t width = 0;
    while (!text.empty()) {
        const Character character = decode(text);
        width += width_of(character.code);
        text.remove_prefix(character.bytes);
    }
    return width;
}

std::string shortened(std::string_view text, std::size_t width) {
    constexpr std::string_view kMark = "\u2026";
    if (width == 0 || display_width(text) <= width) {
        return std::string(text);
    }
    const Utf8Texts utf8;
    std::size_t bytes = 0;
    for (std::size_t room = width - 1; bytes < text.size();) {
        const Character character = decode(text.substr(bytes));
        if (width_of(character.code) > room) {
            break;
        }
        room -= width_of(character.code);
        bytes += character.bytes;
    }
    return fmt::format("{}{}", text.substr(0, bytes), kMark);
}

}  // namespace kx::ctl
