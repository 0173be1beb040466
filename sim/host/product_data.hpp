// Vital product data as an adapter's maker writes it into the serial EEPROM.
#pragma once

#include <kxsim/hardware.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kxsim {

// The EEPROM address at which a chip's data lie, and the bytes, damaged. A text that does not fit
// its keyword is an invalid argument.
[[nodiscard]] std::pair<std::uint32_t, std::string> product_data_image(
    std::string_view chip, const ProductData& data, std::span<const Damage> damage = {});

}  // namespace kxsim
