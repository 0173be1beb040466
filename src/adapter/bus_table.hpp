// The table of adapters: a checked lookup by index, and its release.
#pragma once

#include <cstdint>

struct pci_dev;

namespace kx::adapter {

// The device of an adapter index, or null for an index without adapter.
[[nodiscard]] pci_dev* device_at(uint8_t adapter);

// Free the last scan of libpci and empty the table.
void release_bus();

}  // namespace kx::adapter
