// The one door to interface requests: a datagram socket through which drivers answer Ethernet tool
// commands and the few other requests that name an interface.
#pragma once

#include <net/if.h>

#include "support/handle.hpp"

namespace kx {

class InterfaceSocket {
public:
    // May fail; requests on a socket that failed are refused without reaching the kernel.
    InterfaceSocket();

    explicit operator bool() const { return static_cast<bool>(socket_); }

    // SIOCETHTOOL: command is one of the kernel's ethtool_... records with its cmd field set.
    [[nodiscard]] bool ethtool(const char* interface_name, void* command) const;

    // As ethtool, with ioctl's own result: 0, or -1 and errno. -1 and EBADF without a socket.
    [[nodiscard]] int ethtool_result(const char* interface_name, void* command) const;

    // SIOCSIFMTU, with ioctl's own result. The one request whose name field takes 16 characters
    // without a NUL; the kernel reads 15 of them.
    [[nodiscard]] int set_mtu(const char* interface_name, int mtu) const;

    // Any request whose data is a pointer. Names are cut at 15 characters, as the kernel's are.
    [[nodiscard]] bool request(const char* interface_name, unsigned long code, void* data) const;

private:
    [[nodiscard]] int submit(unsigned long code, ifreq& request) const;

    Descriptor socket_;
};

// An interface request that names an interface, all else zero.
[[nodiscard]] ifreq interface_request(const char* interface_name);

}  // namespace kx
