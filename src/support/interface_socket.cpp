#include "support/interface_socket.hpp"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "support/text.hpp"

namespace kx {

ifreq interface_request(const char* interface_name) {
    ifreq request{};
    copy_text(request.ifr_name, interface_name);
    return request;
}

InterfaceSocket::InterfaceSocket() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {}

bool InterfaceSocket::ethtool(const char* interface_name, void* command) const {
    return request(interface_name, SIOCETHTOOL, command);
}

bool InterfaceSocket::request(const char* interface_name, unsigned long code, void* data) const {
    if (!socket_) {
        return false;
    }
    ifreq request = interface_request(interface_name);
    request.ifr_data = static_cast<char*>(data);
    return ioctl(socket_.get(), code, &request) == 0;
}

}  // namespace kx
