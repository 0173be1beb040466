// The adapters of the host, found by an address of the register window or by the location on the
// PCI bus.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "process/attached.hpp"
#include "state/adapters.hpp"

namespace kxsim::models {

// Null when there is none.
[[nodiscard]] state::Adapter* adapter_at(const process::Host& host, std::uint64_t address);
[[nodiscard]] state::Adapter* adapter_named(const process::Host& host, std::string_view location);

// The content of its flash and its EEPROM; empty when the session's file cannot be mapped. Mapped
// once in each process.
[[nodiscard]] std::span<std::uint8_t> flash_of(process::Host& host, const state::Adapter& adapter);
[[nodiscard]] std::span<std::uint8_t> eeprom_of(process::Host& host, const state::Adapter& adapter);

}  // namespace kxsim::models
