// The only place that makes interface requests: a datagram socket, through which drivers answer
// ethtool commands and the few other requests about an interface.
#pragma once

#include <net/if.h>

#include "support/handle.hpp"

namespace kx {

class InterfaceSocket {
public:
    // Opening may fail; requests on such a socket are refused without reaching the kernel.
    InterfaceSocket();

    explicit operator bool() const { return static_cast<bool>(socket_); }

    // SIOCETHTOOL: command is one of the kernel's ethtool_... records with its cmd field set.
    [[nodiscard]] bool ethtool(const char* interface_name, void* command) const;

    // Like ethtool, with the result of ioctl: 0, or -1 and errno. -1 and EBADF without a socket.
    [[nodiscard]] int ethtool_result(const char* interface_name, void* command) const;

    // SIOCSIFMTU, with the result of ioctl. Only this request copies 16 characters of the name
    // without a NUL; the kernel reads 15 of them.
    [[nodiscard]] int set_mtu(const char* interface_name, int mtu) const;

    // Any request whose data is a pointer. Names are cut after 15 characters, as in the kernel.
    [[nodiscard]] bool request(const char* interface_name, unsigned long code, void* data) const;

private:
    [[nodiscard]] int submit(unsigned long code, ifreq& request) const;

    Descriptor socket_;
};

// An interface request with the name of an interface; all other bytes are zero.
[[nodiscard]] ifreq interface_request(const char* interface_name);

}  // namespace kx
