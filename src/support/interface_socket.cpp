#include "support/interface_socket.hpp"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "support/text.hpp"

namespace kx {

ifreq interface_request(const char* interface_name) {
    ifreq request{};
    copy_text(request.ifr_name, interface_name);
    return request;
}

InterfaceSocket::InterfaceSocket() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

bool InterfaceSocket::ethtool(const char* interface_name, void* command) const {
    return ethtool_result(interface_name, command) == 0;
}

int InterfaceSocket::ethtool_result(const char* interface_name, void* command) const {
    ifreq request = interface_request(interface_name);
    request.ifr_data = static_cast<char*>(command);
    return submit(SIOCETHTOOL, request);
}

int InterfaceSocket::set_mtu(const char* interface_name, int mtu) const {
    ifreq request{};
    const std::string_view name = field_text(interface_name, sizeof request.ifr_name);
    std::memcpy(request.ifr_name, name.data(), name.size());
    request.ifr_mtu = mtu;
    return submit(SIOCSIFMTU, request);
}

bool InterfaceSocket::request(const char* interface_name, unsigned long code, void* data) const {
    ifreq request = interface_request(interface_name);
    request.ifr_data = static_cast<char*>(data);
    return submit(code, request) == 0;
}

int InterfaceSocket::submit(unsigned long code, ifreq& request) const {
    if (!socket_) {
        errno = EBADF;
        return -1;
    }
    return ioctl(socket_.get(), code, &request);
}

}  // namespace kx
