// Vital product data as the adapter's maker writes them into the serial EEPROM.
#pragma once

#include <kxsim/hardware.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kxsim {

// The EEPROM address of a chip's data, and the damaged bytes. Throws std::invalid_argument when a
// text does not fit its keyword.
[[nodiscard]] std::pair<std::uint32_t, std::string> product_data_image(
    std::string_view chip, const ProductData& data, std::span<const Damage> damage = {});

}  // namespace kxsim
