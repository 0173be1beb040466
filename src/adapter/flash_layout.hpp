// The layout of the serial flash, the marks of its regions, and the registers of its controller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "support/byte_reader.hpp"

namespace kx::adapter {

// Byte offsets from the start of the first memory BAR.
struct FlashRegisters {
    uint32_t data;
    uint32_t operation;
};

inline constexpr FlashRegisters kQ3Registers{0x6D8, 0x6DC};
inline constexpr FlashRegisters kQ4Registers{0x193F8, 0x193FC};

// Erase commands use units of 64 KiB, whatever the sector size of the flash is.
inline constexpr uint32_t kSectorShift = 16;

inline constexpr uint32_t kRomStart = 0;                  // the boot option ROM of every generation
inline constexpr std::string_view kRomMark = "\x55\xAA";  // its first bytes

// Q3.
inline constexpr int kQ3LastRomSector = 2;
inline constexpr uint32_t kQ3SettingsStart = 0x30000;
inline constexpr int kQ3SettingsSector = kQ3SettingsStart >> kSectorShift;
inline constexpr std::string_view kQ3SettingsMark{"CIB\0", 4};  // with its NUL

// Q4 and Q5.
inline constexpr uint32_t kRomRegion = 0x60000;
inline constexpr uint32_t kLastBootSector = 8;  // the firmware's first sectors follow
inline constexpr uint32_t kConfigStart = 0x70000;
inline constexpr uint32_t kConfigRegion = 0x10000;

// Do the bytes begin like a boot option ROM?
[[nodiscard]] inline bool has_rom_mark(std::span<const std::byte> bytes) {
    return ByteReader(bytes).text_up_to(kRomMark.size()) == kRomMark;
}

}  // namespace kx::adapter
