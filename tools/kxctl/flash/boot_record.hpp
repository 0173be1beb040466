// The configuration records that kxctl writes: as the library would write them.
#pragma once

#include <cstdint>
#include <vector>

#include "flash/card.hpp"

namespace kx::ctl {

// A settings block of Q3 with the header that every block has. block: as long as a block, or
// shorter.
[[nodiscard]] std::vector<std::uint8_t> settings_block(std::vector<std::uint8_t> block);

// The default record of a Q4 or Q5 adapter with an option ROM. Nothing is written. Throws Failure.
[[nodiscard]] std::vector<std::uint8_t> default_record(const FlashCard& card, std::uint32_t ports);

}  // namespace kx::ctl
