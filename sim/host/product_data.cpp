#include "host/product_data.hpp"

#include <cstddef>
#include <span>
#include <stdexcept>

namespace kxsim {
namespace {

constexpr char kIdentifierTag = '\x82';
constexpr char kReadOnlyTag = '\x90';
constexpr char kReadWriteTag = '\x91';
constexpr char kEndTag = '\x78';
constexpr std::size_t kProductSize = 16;

struct Keyword {
    std::string_view name;
    std::size_t size;
    std::string ProductData::*text;  // null: software does not request it
};

// The keywords of each chip's read-only and read-write part, in their order.
constexpr Keyword kQ3ReadOnly[] = {
    {"PN", 16, &ProductData::part_number},
    {"EC", 16, nullptr},
    {"SL", 16, &ProductData::serial},
    {"NA", 12, &ProductData::mac},
    {"V0", 6, &ProductData::v0},
    {"V1", 6, nullptr},
    {"V2", 6, nullptr},
    {"V3", 6, nullptr},
    {"V4", 2, nullptr},
    {"V5", 6, nullptr},
    {"V6", 6, nullptr},
    {"V7", 2, &ProductData::v5},
    {"V8", 2, nullptr},
    {"V9", 2, nullptr},
    {"VA", 2, nullptr},
};
constexpr Keyword kQ4ReadOnly[] = {
    {"PN", 16, &ProductData::part_number},
    {"EC", 16, nullptr},
    {"SL", 24, &ProductData::serial},
    {"NA", 12, &ProductData::mac},
    {"V0", 8, &ProductData::v0},
    {"V1", 32, nullptr},
    {"V2", 6, nullptr},
    {"V3", 8, nullptr},
    {"V4", 2, nullptr},
    {"V5", 8, &ProductData::v5},
    {"V6", 8, nullptr},
    {"V7", 24, nullptr},
    {"V8", 24, nullptr},
    {"V9", 24, nullptr},
    {"VA", 24, nullptr},
    {"VB", 24, nullptr},
};
constexpr Keyword kQ5ReadOnly[] = {
    {"PN", 16, &ProductData::part_number}, {"EC", 8, nullptr},
    {"SN", 32, &ProductData::serial},      {"NA", 12, &ProductData::mac},
    {"V0", 8, &ProductData::v0},           {"V5", 8, &ProductData::v5},
};

struct Layout {
    std::string_view chip;
    std::uint32_t address;
    std::span<const Keyword> read_only;
    std::size_t reserved;  // behind the checksum
};

constexpr Layout kLayouts[] = {
    {"Q3", 0xC00, kQ3ReadOnly, 79},
    {"Q4", 0x400, kQ4ReadOnly, 79},
    {"Q5", 0x400, kQ5ReadOnly, 10},
};

std::string sized(std::size_t size) {
    return {static_cast<char>(size & 0xFF), static_cast<char>(size >> 8)};
}

std::string padded(const std::string& text, std::size_t size, std::string_view what) {
    if (text.size() > size) {
        throw std::invalid_argument(
            std::string(what) + " \"" + text + "\" is longer than " + std::to_string(size) +
            " characters");
    }
    return text + std::string(size - text.size(), ' ');
}

const Layout& layout_of(std::string_view chip) {
    for (const Layout& layout : kLayouts) {
        if (layout.chip == chip) {
            return layout;
        }
    }
    throw std::invalid_argument("chip \"" + std::string(chip) + "\" has no product data");
}

constexpr std::size_t kHeader = 3;  // of a tag, and of a keyword
constexpr std::size_t kReadOnlyPart = kHeader + kProductSize;

// Makes every keyword of the read-only part unknown; values and lengths do not change.
void make_unknown(std::string& image, std::span<const Keyword> keywords) {
    std::size_t place = kReadOnlyPart + kHeader;
    for (const Keyword& keyword : keywords) {
        image.replace(place, 2, "??");
        place += kHeader + keyword.size;
    }
}

void do_damage(std::string& image, Damage damage, const Layout& layout, std::size_t checksum) {
    switch (damage) {
        case Damage::kErased:
            image.assign(image.size(), '\xFF');
            break;
        case Damage::kNoEndTag:
            image.back() = '\xFF';
            break;
        case Damage::kLengths:
            image.replace(kReadOnlyPart + 1, 2, "\xFF\xFF");
            image[kReadOnlyPart + kHeader + 2] = '\xFF';
            break;
        case Damage::kKeywords:
            make_unknown(image, layout.read_only);
            break;
        case Damage::kChecksum:
            image[checksum] = static_cast<char>(image[checksum] ^ 0x55);
            break;
    }
}

}  // namespace

std::pair<std::uint32_t, std::string> product_data_image(
    std::string_view chip, const ProductData& data, std::span<const Damage> damage) {
    const Layout& layout = layout_of(chip);
    std::string entries;
    for (const Keyword& keyword : layout.read_only) {
        const std::string text = keyword.text == nullptr ? std::string() : data.*keyword.text;
        entries += std::string(keyword.name) + static_cast<char>(keyword.size) +
                   padded(text, keyword.size, keyword.name);
    }
    entries += std::string("RV") + static_cast<char>(layout.reserved + 1);
    std::string image = kIdentifierTag + sized(kProductSize) +
                        padded(data.product, kProductSize, "product") + kReadOnlyTag +
                        sized(entries.size() + layout.reserved + 1) + entries;
    unsigned sum = 0;
    for (const char each : image) {
        sum += static_cast<unsigned char>(each);
    }
    const std::size_t checksum = image.size();
    image += static_cast<char>(-sum & 0xFF);  // the sum of all bytes up to this one is 0
    image += std::string(layout.reserved, '\0');
    image += kReadWriteTag + sized(3 + 4) + "RW" + '\x04' + std::string(4, '\0') + kEndTag;
    for (const Damage each : damage) {
        do_damage(image, each, layout, checksum);
    }
    return {layout.address, image};
}

}  // namespace kxsim
