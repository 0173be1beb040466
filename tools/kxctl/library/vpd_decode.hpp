// Vital product data, decoded by their tags and keywords. They are foreign bytes: every length is
// checked against what is there, and what does not fit is told instead of read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

inline constexpr std::string_view kVpdChecksum = "RV";  // the keyword; zeros follow the checksum

// A keyword with its value.
struct VpdField {
    std::string keyword;  // two characters
    bool writable;        // in the part that software may write
    std::size_t offset;   // of the value
    std::string value;    // all of its bytes
};

// All bytes through the checksum add up to 0 as the PCI standard asks, or to 0xFF as in the data
// that the library stores in its records.
enum class VpdChecksum : std::uint8_t { kNone, kGood, kComplement, kBad };

struct VpdContent {
    std::string product;  // the identifier string
    std::vector<VpdField> fields;
    VpdChecksum checksum = VpdChecksum::kNone;
    std::size_t size = 0;               // bytes through the end tag, or all
    std::vector<std::string> problems;  // what is wrong with the data, the checksum aside

    [[nodiscard]] bool sound() const { return problems.empty() && checksum != VpdChecksum::kBad; }

    // The value of a keyword; empty when there is none.
    [[nodiscard]] std::string value(std::string_view keyword) const;
};

[[nodiscard]] VpdContent decode_vpd(std::span<const std::uint8_t> bytes);

// What a keyword means; empty for an unknown one.
[[nodiscard]] std::string vpd_meaning(std::string_view keyword);

// A value without the blanks and zeros that fill it up; empty when it is erased.
[[nodiscard]] std::string vpd_text(std::string_view value);

// The bytes of a value in hexadecimal.
[[nodiscard]] std::string vpd_hex(std::string_view value);

// Whether a text has no characters but those of ASCII that can be seen, and blanks.
[[nodiscard]] bool is_plain_text(std::string_view text);

}  // namespace kx::ctl
