// Which register windows the library could not open. Its lists of adapters have zeros in place of
// what is behind such a window.
#pragma once

#include <cstdint>

namespace kx::ctl {

// From now on.
void forget_refused_windows();

// Whether the window of an adapter, by its index in the library's table, was refused since then.
[[nodiscard]] bool window_was_refused(std::uint8_t adapter);

}  // namespace kx::ctl
