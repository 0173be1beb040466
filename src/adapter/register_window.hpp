// Functions for register windows that are not exported: opening a window when needed, and closing
// it.
#pragma once

#include <cstdint>

namespace kx::adapter {

// Open a Q3 adapter's window unless it is open. 0 or the status of connect_to_hba.
[[nodiscard]] int32_t ensure_q3_window(uint8_t adapter);

// Mark the window as closed, and close /dev/mem (memfd) unless it is already closed.
void close_window();

// Release a window as the contract requires: munmap gets address 0, so the mapping stays. Agents
// keep addresses within it.
void release_window_mapping();

}  // namespace kx::adapter
