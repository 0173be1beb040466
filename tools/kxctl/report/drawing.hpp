// The drawings of "kxctl report": bars of counters, and a flash to scale.
#pragma once

#include <cstdint>
#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// A bar. Counters differ by many powers of ten: it grows with the logarithm, and is whole
// for the greatest.
[[nodiscard]] std::string counter_bar(std::uint64_t value, std::uint64_t most);

// The regions of a flash of so many bytes.
[[nodiscard]] std::string flash_drawing(const Json& regions, std::uint64_t size);

// A region's name, beside its colour in the drawing.
[[nodiscard]] std::string region_label(const Json& region);

}  // namespace kx::ctl::page
