// Replaces the library's functions that open a register window. The lists of adapters call them by
// these names and do not pass on their results.
#include "library/register_windows.hpp"

#include <dlfcn.h>
#include <kxlinhw/adapter.h>

#include <bitset>
#include <limits>

namespace {

std::bitset<std::numeric_limits<std::uint8_t>::max() + 1> refused_windows;

using OpenWindow = std::int32_t(std::uint8_t adapter);

std::int32_t note_refusal(OpenWindow* open_window, std::uint8_t adapter) {
    const std::int32_t status = open_window == nullptr ? KX_ADAPTER_INVALID : open_window(adapter);
    refused_windows.set(adapter, refused_windows.test(adapter) || status != 0);
    return status;
}

OpenWindow* window_function(const char* name) {
    return reinterpret_cast<OpenWindow*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace kx::ctl {

void forget_refused_windows() { refused_windows.reset(); }

bool window_was_refused(std::uint8_t adapter) { return refused_windows.test(adapter); }

}  // namespace kx::ctl

extern "C" std::int32_t connect_to_hba(std::uint8_t adapter) {
    static auto* const open_window = window_function("connect_to_hba");
    return note_refusal(open_window, adapter);
}

extern "C" std::int32_t connect_to_hba_Q4(std::uint8_t adapter) {
    static auto* const open_window = window_function("connect_to_hba_Q4");
    return note_refusal(open_window, adapter);
}
