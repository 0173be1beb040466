// Gives sectors of a flash a new content, and reads it back.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "flash/card.hpp"
#include "flash/layout.hpp"

namespace kx::ctl {

// The content of a range of whole sectors.
struct SectorContent {
    Range range;
    std::uint32_t sector_size;
    std::uint32_t first_page;  // the address of the page with the signature: it is written last
    std::span<const std::uint8_t> bytes;

    [[nodiscard]] std::vector<Range> sectors() const;
    // The bytes of a part of the range.
    [[nodiscard]] std::span<const std::uint8_t> part(const Range& range) const;
};

// Erase these sectors of the range, write their pages, and read the whole range back. region and
// what are for the user: "boot", "03:00.4: writing the boot image". Throws Failure.
void rewrite(
    const FlashCard& card, const SectorContent& content, const std::vector<Range>& sectors,
    const std::string& region, const std::string& what);

}  // namespace kx::ctl
