// Trigger: requests through the VPD capability. Effect: a dword is read or written at once.
#include "models/eeprom.hpp"

namespace kxsim::models {
namespace {

constexpr std::uint8_t kErasedByte = 0xFF;

}  // namespace

std::uint32_t read_eeprom(std::span<const std::uint8_t> content, std::uint32_t address) {
    const std::size_t start = address & kEepromAddresses;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        const std::uint32_t byte = start + i < content.size() ? content[start + i] : kErasedByte;
        value |= byte << (8 * i);
    }
    return value;
}

void write_eeprom(std::span<std::uint8_t> content, std::uint32_t address, std::uint32_t value) {
    const std::size_t start = address & kEepromAddresses;
    for (std::size_t i = 0; i < sizeof value && start + i < content.size(); ++i) {
        content[start + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

}  // namespace kxsim::models
