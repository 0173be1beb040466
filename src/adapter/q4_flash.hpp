// What writers of Q4 and Q5 flash share beside the exported functions: measuring it, and erasing a
// range in its own sectors.
#pragma once

#include <cstdint>

namespace kx::adapter {

// Ask the flash for its size and its number of sectors, print both, and give the size of a sector.
// 0, or -22 after the line that tells which failed.
[[nodiscard]] int32_t measure_flash(uint8_t adapter, int32_t& sector_size);

// Erase as many sectors as size bytes take, the first one counted in units of 64 KiB. The status of
// q4_flash_erase_sectors.
[[nodiscard]] int32_t erase_range(
    uint8_t adapter, uint32_t start, uint32_t size, int32_t sector_size);

}  // namespace kx::adapter
