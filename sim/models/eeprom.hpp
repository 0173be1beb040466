// The serial EEPROM of an adapter: dwords at addresses that are multiples of 4, little-endian.
#pragma once

#include <cstdint>
#include <span>

namespace kxsim::models {

inline constexpr std::uint32_t kEepromAddresses =
    0x7FFC;  // the addresses that the VPD capability can express

// The content may be shorter than the address space; the rest reads as erased and cannot be
// written.
[[nodiscard]] std::uint32_t read_eeprom(
    std::span<const std::uint8_t> content, std::uint32_t address);
void write_eeprom(std::span<std::uint8_t> content, std::uint32_t address, std::uint32_t value);

}  // namespace kxsim::models
