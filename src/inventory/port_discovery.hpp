// The second step of an inventory, which also links its records at once.
#pragma once

#include <kxlinhw/records.h>

namespace kx::inventory {

// Attach the host's interfaces to the cards of the list. Returns 0, 1 or 66.
[[nodiscard]] uint32_t discover_ports(CardList& list);

}  // namespace kx::inventory
