// The one way into errStr, the detail text of set operations. However long names and reasons are,
// nothing is written past its last byte and it stays terminated.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace kx::settings {

// A message as printf makes it in a buffer of Size bytes: cut so that its NUL fits. Agents know the
// messages in their cut form.
template <std::size_t Size>
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
    char text_[Size]{};
};

using PortMessage = CutMessage<256>;
using OffloadMessage = CutMessage<64>;

// Zero the whole detail text.
void clear_detail();

// Append as much of a message as fits.
void append_detail(std::string_view message);

// Have the message stand alone.
void set_detail(std::string_view message);

}  // namespace kx::settings
