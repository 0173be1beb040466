// An adapter's PCI configuration space, with the VPD capability, which leads to the EEPROM.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "state/adapter_hardware.hpp"

namespace kxsim::models {

struct ConfigSpace {
    state::AdapterHardware& hardware;
    std::span<const std::uint8_t>
        bytes;  // everything except the VPD capability's registers; read-only
    std::span<std::uint8_t> eeprom;
};

// Read or write bytes from an offset, as a process does. Returns their number, which is smaller
// than requested at the end. A write changes only the VPD capability's registers.
std::size_t read_config(const ConfigSpace& space, std::size_t offset, std::span<std::uint8_t> out);
std::size_t write_config(
    const ConfigSpace& space, std::size_t offset, std::span<const std::uint8_t> in);

}  // namespace kxsim::models
