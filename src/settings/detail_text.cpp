#include "settings/detail_text.hpp"

#include <kxlinhw/status.h>

#include <algorithm>
#include <cstring>

#include "support/text.hpp"

namespace kx::settings {

void clear_detail() { std::memset(errStr, 0, sizeof errStr); }

void append_detail(std::string_view message) {
    // Agents may have overwritten the text; without a NUL it is full.
    const std::size_t used = field_text(errStr).size();
    const std::size_t room = sizeof errStr - 1 - std::min(used, sizeof errStr - 1);
    const std::size_t length = std::min(message.size(), room);
    std::memcpy(errStr + used, message.data(), length);
    errStr[std::min(used + length, sizeof errStr - 1)] = '\0';
}

void set_detail(std::string_view message) {
    clear_detail();
    append_detail(message);
}

}  // namespace kx::settings
