// What every setter group of a port does: ask the driver over a socket of its own, report what
// failed, record what was applied.
#pragma once

#include <kxlinhw/records.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "settings/detail_text.hpp"
#include "support/interface_socket.hpp"

namespace kx::settings {

// The status of a group whose socket could not be opened or whose request was refused.
inline constexpr int kRefused = 1;

class PortSetter {
public:
    // The name of the interface must outlive the setter.
    PortSetter(const char* interface_name, uint32_t port_instance)
        : interface_(interface_name), instance_(port_instance) {}

    // Is there a socket? Without one a group gives up at once.
    explicit operator bool() const { return static_cast<bool>(socket_); }

    // An ethtool command; ioctl's own result, errno telling why it is not 0.
    [[nodiscard]] int request(void* command) const {
        return socket_.ethtool_result(interface_, command);
    }
    [[nodiscard]] int request_mtu(int mtu) const { return socket_.set_mtu(interface_, mtu); }

    // Append the commonest message, "Set SETTING failed for INTERFACE: REASON; ".
    // Returns the message.
    PortMessage report(const char* setting, const char* reason) const;

    // Append the message of the link settings, "Set SETTING failed: A for B; ".
    static void report_link(const char* setting, const char* a, const char* b);

    // Record what was applied.
    void save(const char* key, int value) const;

private:
    const char* interface_;
    uint32_t instance_;
    InterfaceSocket socket_;
};

// The system's text for why the request before this call failed; good until the next call.
[[nodiscard]] inline const char* system_reason() { return std::strerror(errno); }

}  // namespace kx::settings
