// The first step of an inventory. Its records are linked into the list at once, so that
// Close_Kxcard frees everything when a later step fails.
#pragma once

#include <kxlinhw/records.h>

namespace kx::inventory {

// Add the maker's functions on the PCI bus to the list, and count the physical functions. Returns 0
// or 66.
[[nodiscard]] uint32_t scan_cards(CardList& list);

}  // namespace kx::inventory
