// The end of a register window, for disconnecting and for tearing everything down.
#pragma once

namespace kx::adapter {

// Close /dev/mem if the library still holds the descriptor that memfd names.
void close_window_descriptor();

// The contract's release of a window: the mapping stays, as munmap is given address 0. Agents hold
// addresses into it.
void release_window_mapping();

}  // namespace kx::adapter
