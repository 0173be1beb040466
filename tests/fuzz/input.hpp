// What fuzz targets make of their bytes. Every piece that goes to the library stands in a block of
// exactly its size, so that a sanitizer sees the first byte read past it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// Ends the process so that the input is kept as a finding.
inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

class Input {
public:
    Input(const uint8_t* data, std::size_t size) : rest_(data, size) {}

    // Numbers are zero behind the end.
    uint8_t byte() { return number<uint8_t>(); }
    template <class Number>
    Number number() {
        Number value{};
        const auto bytes = take(sizeof value);
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(&value));
        return value;
    }

    std::span<const uint8_t> take(std::size_t size) {
        const auto piece = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(piece.size());
        return piece;
    }
    std::span<const uint8_t> rest() { return take(rest_.size()); }

    // The characters up to the next NUL, which is dropped.
    std::string text() {
        const auto end = std::find(rest_.begin(), rest_.end(), uint8_t{0});
        const auto piece = take(static_cast<std::size_t>(end - rest_.begin()));
        take(1);
        return std::string(piece.begin(), piece.end());
    }

private:
    std::span<const uint8_t> rest_;
};

// A block of a fixed size: the bytes, then zeros.
inline std::vector<uint8_t> block(std::span<const uint8_t> bytes, std::size_t size) {
    std::vector<uint8_t> result(
        bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), size)));
    result.resize(size);
    result.shrink_to_fit();
    return result;
}

// A C text in a block of its own; std::string would keep short ones in a larger one.
class Text {
public:
    explicit Text(std::string_view text) : bytes_(text.size() + 1) {
        std::copy(text.begin(), text.end(), bytes_.begin());
    }
    [[nodiscard]] char* c_str() { return bytes_.data(); }

private:
    std::vector<char> bytes_;
};

}  // namespace fuzz
