// The only functions that write to errStr, the detail text of set operations. However long names
// and reasons are, they write nothing past its last byte, and it stays terminated.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace kx::settings {

// A message as printf formats it in a buffer of kSize bytes, cut so that its NUL fits. Agents rely
// on the cut messages.
template <std::size_t kSize>
class CutMessage {
public:
    __attribute__((format(printf, 2, 3))) explicit CutMessage(const char* format, ...) {
        std::va_list values;
        va_start(values, format);
        std::vsnprintf(text_, sizeof text_, format, values);
        va_end(values);
    }
    [[nodiscard]] const char* c_str() const { return text_; }
    operator std::string_view() const { return text_; }

private:
    char text_[kSize]{};
};

using PortMessage = CutMessage<256>;
using OffloadMessage = CutMessage<64>;

// Set the whole detail text to zero.
void clear_detail();

// Append as much of a message as fits.
void append_detail(std::string_view message);

// Replace the detail text by the message.
void set_detail(std::string_view message);

}  // namespace kx::settings
