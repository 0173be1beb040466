// Reads two hexadecimal digits of an address field as one byte.
#include <kxlinhw/hex.h>

#include <optional>

namespace {

std::optional<int> digit_worth(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return std::nullopt;
}

}  // namespace

extern "C" int atohex(const char* text) {
    int value = 0;
    for (int k = 0; k < 2 && text != nullptr && text[k] != '\0'; ++k) {
        if (const auto worth = digit_worth(text[k])) {
            value = value * 16 + *worth;
        }
    }
    return value;
}
