// The paths of open descriptors, for the calls that are watched (watched_calls.cpp).
#pragma once

namespace kx::ctl::descriptor_paths {

// A descriptor that is not open is ignored.
void remember(int descriptor, const char* path) noexcept;
void forget(int descriptor) noexcept;

// Empty when it is not known.
[[nodiscard]] const char* path_of(int descriptor) noexcept;

}  // namespace kx::ctl::descriptor_paths
