// An adapter's registers, as loads and stores in its first memory BAR reach them.
#pragma once

#include <cstdint>
#include <span>

#include "state/adapter_hardware.hpp"

namespace kxsim::models {

// One 32-bit access at a byte offset from the BAR. flash: the content of the adapter's flash.
// Registers that nothing models read 0 and lose what is written; without power all read all ones.
[[nodiscard]] std::uint32_t load_register(
    state::AdapterHardware& hardware, std::span<std::uint8_t> flash, std::uint32_t offset);
void store_register(
    state::AdapterHardware& hardware, std::span<std::uint8_t> flash, std::uint32_t offset,
    std::uint32_t value);

// The power comes back: the chip and its controller are idle, content and faults are as they were,
// but for a power cut, which has happened.
void restore_power(state::AdapterHardware& hardware);

}  // namespace kxsim::models
