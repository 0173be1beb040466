// An adapter's PCI configuration space, with the VPD capability and the EEPROM behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "state/adapter_hardware.hpp"

namespace kxsim::models {

struct ConfigSpace {
    state::AdapterHardware& hardware;
    std::span<const std::uint8_t> bytes;  // all but the VPD capability's registers; read only
    std::span<std::uint8_t> eeprom;
};

// Read or write bytes from an offset on, as a process does. Returns how many there are: fewer than
// asked for at the end. Of what is written only the VPD capability's registers take notice.
std::size_t read_config(const ConfigSpace& space, std::size_t offset, std::span<std::uint8_t> out);
std::size_t write_config(
    const ConfigSpace& space, std::size_t offset, std::span<const std::uint8_t> in);

}  // namespace kxsim::models
