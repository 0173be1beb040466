// Register windows beside the exported functions: opening one when needed, and their end.
#pragma once

#include <cstdint>

namespace kx::adapter {

// Open a Q3 adapter's window unless it is open. 0 or the status of connect_to_hba.
[[nodiscard]] int32_t ensure_q3_window(uint8_t adapter);

// No window is open any more; close /dev/mem, as memfd names it, unless that was done already.
void close_window();

// The contract's release of a window: the mapping stays, as munmap is given address 0. Agents hold
// addresses into it.
void release_window_mapping();

}  // namespace kx::adapter
