#include "settings/port_setter.hpp"

#include <kxlinhw/settings.h>

namespace kx::settings {

PortMessage PortSetter::report(const char* setting, const char* reason) const {
    const PortMessage message("Set %s failed for %s: %s; ", setting, interface_, reason);
    append_detail(message);
    return message;
}

void PortSetter::report_link(const char* setting, const char* a, const char* b) {
    append_detail(PortMessage("Set %s failed: %s for %s; ", setting, a, b));
}

void PortSetter::save(const char* key, int value) const {
    // Agents get the result of the setting, not of its recording.
    static_cast<void>(savePortParam(key, interface_, instance_, value));
}

}  // namespace kx::settings
