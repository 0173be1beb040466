// The drawings of "kxctl report": bars of counters, and a flash to scale.
#pragma once

#include <cstdint>
#include <string>

#include "output/json.hpp"

namespace kx::ctl::page {

// A bar. Counters differ by many powers of ten, so its length is logarithmic; the largest counter
// has the full length.
[[nodiscard]] std::string counter_bar(std::uint64_t value, std::uint64_t most);

// The regions of a flash of so many bytes.
[[nodiscard]] std::string flash_drawing(const Json& regions, std::uint64_t size);

// The name of a region, with its colour in the drawing.
[[nodiscard]] std::string region_label(const Json& region);

}  // namespace kx::ctl::page
