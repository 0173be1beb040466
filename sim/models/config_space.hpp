// An adapter's PCI configuration space, with the VPD capability and the EEPROM behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "state/adapter_hardware.hpp"

namespace kxsim::models {

// Configuration space of an adapter: its bytes, and what lies behind them.
struct ConfigSpace {
    state::AdapterHardware& hardware;
    std::span<std::uint8_t> bytes;
    std::span<std::uint8_t> eeprom;
};

// A process reads or writes bytes from an offset on. Returns how many there are: fewer than asked
// for at the end. Of what is written only the VPD capability's registers take notice.
std::size_t read_config(const ConfigSpace& space, std::size_t offset, std::span<std::uint8_t> out);
std::size_t write_config(
    const ConfigSpace& space, std::size_t offset, std::span<const std::uint8_t> in);

// Put a capability of 8 bytes at an offset (a multiple of 4 from 0x40 on) in front of the list.
void add_capability(std::span<std::uint8_t> bytes, std::uint8_t id, std::uint8_t offset);

}  // namespace kxsim::models
