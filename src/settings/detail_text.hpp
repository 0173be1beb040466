// The one way into errStr, the detail text of set operations. However long names and reasons are,
// nothing is written past its last byte and it stays terminated.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kx::settings {

// A message as printf makes it in a buffer of that many bytes: cut so that its NUL fits. Agents
// know the messages in their cut form.
[[nodiscard]] __attribute__((format(printf, 2, 3))) std::string cut_message(
    std::size_t buffer_size, const char* format, ...);

inline constexpr std::size_t kPortMessage = 256;    // buffer of every message about a port
inline constexpr std::size_t kOffloadMessage = 64;  // buffer of a message about an offload setting

// Zero the whole detail text.
void clear_detail();

// Append as much of a message as fits.
void append_detail(std::string_view message);

// Have the message stand alone.
void set_detail(std::string_view message);

}  // namespace kx::settings
