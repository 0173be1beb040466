// The functions of every group of port setters: send requests to the driver through a socket,
// report failures, record applied settings.
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

    // Is there a socket? Without a socket a group ends at once.
    explicit operator bool() const { return static_cast<bool>(socket_); }

    // An ethtool command. Returns the result of ioctl; errno has the reason when it is not 0.
    [[nodiscard]] int request(void* command) const {
        return socket_.ethtool_result(interface_, command);
    }
    [[nodiscard]] int request_mtu(int mtu) const { return socket_.set_mtu(interface_, mtu); }

    // Append the most common message, "Set SETTING failed for INTERFACE: REASON; ".
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

// The system's text for the failure of the previous request; valid until the next call.
[[nodiscard]] inline const char* system_reason() { return std::strerror(errno); }

}  // namespace kx::settings
