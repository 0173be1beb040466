// The fixed layout of a generation's vital product data: the offsets of tags and keywords, whatever
// the EEPROM contains.
#pragma once

#include <kxlinhw/adapter_lists.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace kx::adapter {

// A tag or keyword with its length: the three bytes before a value.
struct VpdHeader {
    uint16_t offset;
    uint8_t bytes[3];

    [[nodiscard]] constexpr std::size_t value() const { return offset + sizeof bytes; }
    [[nodiscard]] bool is(std::string_view keyword) const {
        return std::equal(keyword.begin(), keyword.end(), bytes, bytes + 2, [](char a, uint8_t b) {
            return static_cast<uint8_t>(a) == b;
        });
    }
};

struct VpdZeros {
    uint16_t offset;
    uint16_t length;
};

struct VpdTemplate {
    std::span<const VpdHeader> headers;
    uint16_t checksum;
    VpdZeros reserved[2];
    uint16_t end;  // of the end tag, the last byte
};

extern const VpdTemplate kQ3VpdTemplate;
extern const VpdTemplate kQ4VpdTemplate;

// A value in VPD after a template was written over it: found by its keyword, with the length of its
// length byte, cut at the end of the data. Empty when the template lacks the keyword.
[[nodiscard]] std::string_view vpd_value(
    const VpdTemplate& layout, std::span<const uint8_t> vpd, std::string_view keyword);

// The identifier string, which is the product's name; its length has two bytes.
[[nodiscard]] std::string_view vpd_identifier(std::span<const uint8_t> vpd);

}  // namespace kx::adapter
