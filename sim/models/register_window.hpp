// An adapter's registers: loads and stores in its first memory BAR.
#pragma once

#include <cstdint>
#include <span>

#include "state/adapter_hardware.hpp"

namespace kxsim::models {

// One 32-bit access at a byte offset from the BAR. flash: the content of the adapter's flash.
// Registers without a model read as 0 and lose what is written; without power all registers read as
// all ones.
[[nodiscard]] std::uint32_t load_register(
    state::AdapterHardware& hardware, std::span<std::uint8_t> flash, std::uint32_t offset);
void store_register(
    state::AdapterHardware& hardware, std::span<std::uint8_t> flash, std::uint32_t offset,
    std::uint32_t value);

// Restore the power: the chip and its controller are idle; content and faults do not change, except
// that the power cut is over.
void restore_power(state::AdapterHardware& hardware);

}  // namespace kxsim::models
