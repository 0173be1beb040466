// The table of adapters behind its index: a checked look at it, and its end.
#pragma once

#include <cstdint>

struct pci_dev;

namespace kx::adapter {

// The device of an adapter index, or null for an index without adapter.
[[nodiscard]] pci_dev* device_at(uint8_t adapter);

// Give the last scan back to libpci and empty the table.
void release_bus();

}  // namespace kx::adapter
