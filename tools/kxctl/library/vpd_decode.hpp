// Vital product data, decoded by their tags and keywords. The bytes are untrusted: every length is
// checked against the available data, and what does not fit is reported instead of read.
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

// The sum of all bytes up to the checksum is 0, as the PCI standard requires, or 0xFF, as in the
// data of the library's records.
enum class VpdChecksum : std::uint8_t { kNone, kGood, kComplement, kBad };

struct VpdContent {
    std::string product;  // the identifier string
    std::vector<VpdField> fields;
    VpdChecksum checksum = VpdChecksum::kNone;
    std::size_t size = 0;               // bytes through the end tag, or all
    std::vector<std::string> problems;  // what is wrong with the data, except the checksum

    [[nodiscard]] bool sound() const { return problems.empty() && checksum != VpdChecksum::kBad; }

    // The value of a keyword; empty when there is none.
    [[nodiscard]] std::string value(std::string_view keyword) const;
};

[[nodiscard]] VpdContent decode_vpd(std::span<const std::uint8_t> bytes);

// The meaning of a keyword; empty for an unknown keyword.
[[nodiscard]] std::string vpd_meaning(std::string_view keyword);

// A value without its trailing blanks and zeros; empty when it is erased.
[[nodiscard]] std::string vpd_text(std::string_view value);

// The bytes of a value in hexadecimal.
[[nodiscard]] std::string vpd_hex(std::string_view value);

// Whether a text contains only visible ASCII characters and blanks.
[[nodiscard]] bool is_plain_text(std::string_view text);

}  // namespace kx::ctl
