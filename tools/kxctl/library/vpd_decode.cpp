#include "library/vpd_decode.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <numeric>

#include "output/counted.hpp"

namespace kx::ctl {
namespace {

constexpr std::uint8_t kIdentifierTag = 0x82;
constexpr std::uint8_t kReadOnlyTag = 0x90;
constexpr std::uint8_t kReadWriteTag = 0x91;
constexpr std::uint8_t kEndTag = 0x78;
constexpr std::uint8_t kBlank = 0xFF;
constexpr std::size_t kHeader = 3;  // of a tag with data, and of a keyword

class Decoder {
public:
    explicit Decoder(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    VpdContent decode() {
        content_.size = bytes_.size();
        if (std::all_of(bytes_.begin(), bytes_.end(), [](auto byte) { return byte == kBlank; })) {
            problem("All bytes are erased");
            return content_;
        }
        std::size_t place = 0;
        while (place < bytes_.size()) {
            if (bytes_[place] == kEndTag) {
                content_.size = place + 1;
                return content_;
            }
            if (!decode_tag(place)) {
                return content_;
            }
        }
        problem("There is no end tag");
        return content_;
    }

private:
    void problem(std::string text) { content_.problems.push_back(std::move(text)); }

    [[nodiscard]] std::string text(std::size_t place, std::size_t length) const {
        const auto part = bytes_.subspan(place, length);
        return {part.begin(), part.end()};
    }

    // A length, or what is left when that is less.
    std::size_t fitting(
        std::size_t length, std::size_t left, const std::string& what, std::size_t at) {
        if (length > left) {
            problem(fmt::format(
                "{} at {} claims {}, {} left", what, at, counted(length, "byte"),
                left == 1 ? "1 is" : fmt::format("{} are", left)));
        }
        return std::min(length, left);
    }

    // Decode the tag at a position and its data, and move the position to the next tag. False when
    // the data after it cannot be decoded.
    bool decode_tag(std::size_t& place) {
        const std::uint8_t tag = bytes_[place];
        if (tag != kIdentifierTag && tag != kReadOnlyTag && tag != kReadWriteTag) {
            problem(fmt::format("Unknown tag {:#04x} at {}", tag, place));
            return false;
        }
        if (bytes_.size() - place < kHeader) {
            problem(fmt::format("The tag at {} is cut off", place));
            return false;
        }
        const std::size_t start = place + kHeader;
        const std::size_t claimed = bytes_[place + 1] | std::size_t{bytes_[place + 2]} << 8U;
        const std::size_t length = fitting(claimed, bytes_.size() - start, "The part", place);
        if (tag == kIdentifierTag) {
            content_.product = text(start, length);
        } else {
            decode_fields(start, start + length, tag == kReadWriteTag);
        }
        place = start + length;
        return true;
    }

    void decode_fields(std::size_t place, std::size_t end, bool writable) {
        while (end - place >= kHeader) {
            const std::string keyword = text(place, 2);
            if (!is_plain_text(keyword)) {
                problem(fmt::format("There is no keyword at {}", place));
                return;
            }
            const std::size_t start = place + kHeader;
            const std::size_t length = fitting(bytes_[place + 2], end - start, keyword, place);
            content_.fields.push_back({keyword, writable, start, text(start, length)});
            if (keyword == kVpdChecksum && length > 0) {
                check_sum(start);
            }
            place = start + length;
        }
        if (place != end) {
            problem(fmt::format("The keyword at {} is cut off", place));
        }
    }

    void check_sum(std::size_t checksum) {
        const auto summed = bytes_.first(checksum + 1);
        const unsigned sum = std::accumulate(summed.begin(), summed.end(), 0U) & 0xFFU;
        content_.checksum = sum == 0      ? VpdChecksum::kGood
                            : sum == 0xFF ? VpdChecksum::kComplement
                                          : VpdChecksum::kBad;
    }

    std::span<const std::uint8_t> bytes_;
    VpdContent content_;
};

struct Meaning {
    std::string_view keyword;
    const char* meaning;
};

constexpr Meaning kMeanings[] = {
    {"PN", "Part number"},   {"EC", "Engineering change"}, {"SN", "Serial number"},
    {"SL", "Serial number"}, {"NA", "MAC address"},        {kVpdChecksum, "Checksum"},
    {"RW", "Free space"},
};

}  // namespace

std::string VpdContent::value(std::string_view keyword) const {
    for (const VpdField& field : fields) {
        if (field.keyword == keyword) {
            return field.value;
        }
    }
    return {};
}

VpdContent decode_vpd(std::span<const std::uint8_t> bytes) { return Decoder(bytes).decode(); }

std::string vpd_meaning(std::string_view keyword) {
    for (const Meaning& row : kMeanings) {
        if (row.keyword == keyword) {
            return row.meaning;
        }
    }
    return keyword.starts_with('V') ? "Maker's own" : "";
}

std::string vpd_text(std::string_view value) {
    constexpr std::string_view kFilling(" \0", 2);
    if (value.find_first_not_of('\xFF') == value.npos) {
        return {};
    }
    return std::string(value.substr(0, value.find_last_not_of(kFilling) + 1));
}

std::string vpd_hex(std::string_view value) {
    std::string hex;
    for (const char byte : value) {
        hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return hex;
}

bool is_plain_text(std::string_view text) {
    return std::all_of(
        text.begin(), text.end(), [](char each) { return each >= ' ' && each <= '~'; });
}

}  // namespace kx::ctl
