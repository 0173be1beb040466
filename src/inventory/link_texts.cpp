#include "inventory/link_texts.hpp"

#include <span>

namespace kx::inventory {
namespace {

struct BitText {
    uint32_t bit;
    const char* text;
};

constexpr BitText kConnectors[] = {
    {0x080, "TP "}, {0x100, "AUI "}, {0x800, "BNC "}, {0x200, "MII "}, {0x400, "FIBRE "},
};

// Agents compare the two lists byte by byte. The last two texts of the supported list have no blank
// after them, and the texts for an empty list differ in a capital letter.
constexpr BitText kSupportedModes[] = {
    {0x0001, "10baseT/Half "},  {0x0002, "10baseT/Full "},   {0x0004, "100baseT/Half "},
    {0x0008, "100baseT/Full "}, {0x0010, "1000baseT/Half "}, {0x0020, "1000baseT/Full "},
    {0x8000, "2500baseX/Full"}, {0x1000, "10000baseT/Full"},
};

constexpr BitText kAdvertisedModes[] = {
    {0x0001, "10baseT/Half "},   {0x0002, "10baseT/Full "},    {0x0004, "100baseT/Half "},
    {0x0008, "100baseT/Full "},  {0x0010, "1000baseT/Half "},  {0x0020, "1000baseT/Full "},
    {0x8000, "2500baseX/Full "}, {0x1000, "10000baseT/Full "},
};

constexpr BitText kWakeModes[] = {
    {0x01, "p"}, {0x02, "u"}, {0x04, "m"}, {0x08, "b"}, {0x10, "a"}, {0x20, "g"}, {0x40, "s"},
};

std::string texts_of(std::span<const BitText> rows, uint32_t mask) {
    std::string texts;
    for (const BitText& row : rows) {
        if ((mask & row.bit) != 0) {
            texts += row.text;
        }
    }
    return texts;
}

std::string texts_or(std::span<const BitText> rows, uint32_t mask, const char* fallback) {
    std::string texts = texts_of(rows, mask);
    return texts.empty() ? fallback : texts;
}

}  // namespace

std::string connector_list_text(uint32_t supported) {
    return texts_or(kConnectors, supported, "N/A");
}

std::string supported_modes_text(uint32_t supported) {
    return texts_or(kSupportedModes, supported, "Not Reported");
}

std::string advertised_modes_text(uint32_t advertising) {
    return texts_or(kAdvertisedModes, advertising, "Not reported");
}

std::string connector_text(uint8_t port) {
    switch (port) {
        case 0:
            return "Twisted Pair";
        case 1:
            return "AUI";
        case 2:
            return "MII";
        case 3:
            return "FIBRE";
        case 4:
            return "BNC";
        case 5:
            return "Direct Attach Copper";
        case 239:
            return "None";
        case 255:
            return "Other";
        default:
            return "Unknown! (" + std::to_string(port) + ")";
    }
}

const char* transceiver_text(uint8_t transceiver) {
    switch (transceiver) {
        case 0:
            return "Internal";
        case 1:
            return "External";
        default:
            return "Unknown";
    }
}

std::string wake_letters(uint32_t modes) { return modes == 0 ? "d" : texts_of(kWakeModes, modes); }

}  // namespace kx::inventory
