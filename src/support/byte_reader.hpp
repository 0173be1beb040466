// Reads untrusted bytes: module files and their strings, product data, option ROMs. Every access is
// checked against their end, so a caller can make many accesses and check once whether one failed.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace kx {

class ByteReader {
public:
    explicit ByteReader(std::span<const std::byte> bytes, std::endian order = std::endian::little)
        : bytes_(reinterpret_cast<const char*>(bytes.data()), bytes.size()), order_(order) {}
    explicit ByteReader(std::span<const uint8_t> bytes) : ByteReader(std::as_bytes(bytes)) {}

    // Continue at an offset from the first byte.
    ByteReader& at(uint64_t offset) {
        overrun_ = overrun_ || offset > bytes_.size();
        place_ = std::min<uint64_t>(offset, bytes_.size());
        return *this;
    }

    // The next bytes; none when fewer are left.
    [[nodiscard]] std::string_view text(uint64_t size) {
        overrun_ = overrun_ || size > left();
        return text_up_to(size > left() ? 0 : size);
    }

    // The next bytes, cut at the end.
    [[nodiscard]] std::string_view text_up_to(uint64_t size) {
        const std::string_view text = bytes_.substr(place_, size);
        place_ += text.size();
        return text;
    }

    // The next bytes before `end`, or all that are left when it is not among them. Continues behind
    // it.
    [[nodiscard]] std::string_view text_before(char end) {
        const std::size_t stop = std::min(bytes_.find(end, place_), bytes_.size());
        const std::string_view text = bytes_.substr(place_, stop - place_);
        place_ = std::min(stop + 1, bytes_.size());
        return text;
    }

    // Continue behind all bytes of this value that are next.
    void skip_all(char value) {
        place_ = std::min(bytes_.find_first_not_of(value, place_), bytes_.size());
    }

    // The next number of 1 to 8 bytes; 0 when fewer bytes are left.
    [[nodiscard]] uint64_t number(std::size_t width) {
        const std::string_view bytes = text(width);
        uint64_t value = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const std::size_t next = order_ == std::endian::big ? i : bytes.size() - 1 - i;
            value = value << 8 | static_cast<uint8_t>(bytes[next]);
        }
        return value;
    }

    [[nodiscard]] std::size_t place() const { return place_; }
    [[nodiscard]] bool at_end() const { return left() == 0; }

    // Has any access reached past the end?
    [[nodiscard]] bool overrun() const { return overrun_; }

private:
    [[nodiscard]] std::size_t left() const { return bytes_.size() - place_; }

    std::string_view bytes_;
    std::endian order_;
    std::size_t place_ = 0;
    bool overrun_ = false;
};

}  // namespace kx
