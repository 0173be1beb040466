// Functions for writing Q4 and Q5 flash that are not exported: finding its size, and erasing a
// range in its own sectors.
#pragma once

#include <cstdint>

namespace kx::adapter {

// Read the size of the flash and its number of sectors, print both, and store the size of a sector.
// Returns 0; or -22 after a message about the step that failed.
[[nodiscard]] int32_t measure_flash(uint8_t adapter, int32_t& sector_size);

// Erase the sectors for size bytes; the first sector is counted in units of 64 KiB. Returns the
// status of q4_flash_erase_sectors.
[[nodiscard]] int32_t erase_range(
    uint8_t adapter, uint32_t start, uint32_t size, int32_t sector_size);

}  // namespace kx::adapter
