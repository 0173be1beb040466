// Trigger: an ioctl whose data is an interface request (SIOCETHTOOL, SIOCSIFMTU, SIOCDEVPRIVATE and
// a few more). Effect: the interface's record in the session's network file is read or changed, so
// the setting is there for every process of the session. What can be made to fail: each request of
// each interface, by a refusal that carries an errno; the ioctl as such, by a fault rule.
#include "models/nic.hpp"

#include <linux/sockios.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "models/ethtool.hpp"
#include "process/tree_file.hpp"

namespace kxsim::models {
namespace {

using state::Interface;

// The kernel shows an interface's MTU in its directory too.
void show_mtu(const process::Host& host, const char* name, const Interface& interface) {
    char path[sizeof "/sys/class/net//mtu" + state::kNameSize];
    char text[16];
    std::snprintf(path, sizeof path, "/sys/class/net/%s/mtu", name);
    const int length = std::snprintf(text, sizeof text, "%u\n", interface.mtu);
    process::replace_content(host, path, {text, static_cast<std::size_t>(length)});
}

int set_mtu(const process::Host& host, Interface& interface, const char* name, int mtu) {
    if (mtu <= 0) {
        return EINVAL;
    }
    interface.mtu = static_cast<std::uint32_t>(mtu);
    show_mtu(host, name, interface);
    return 0;
}

int refusal(const Interface& interface, std::uint32_t command) {
    for (std::uint32_t i = 0; i < interface.refusal_count; ++i) {
        if (interface.refusals[i].command == command) {
            return interface.refusals[i].error;
        }
    }
    return 0;
}

}  // namespace

bool is_interface_request(unsigned long request) {
    return request == SIOCETHTOOL || request == SIOCSIFMTU || request == SIOCDEVPRIVATE;
}

std::uint32_t command_of(unsigned long request, const ifreq& asked) {
    auto command = static_cast<std::uint32_t>(request);
    if (request == SIOCETHTOOL && asked.ifr_data != nullptr) {
        std::memcpy(&command, asked.ifr_data, sizeof command);
    }
    return command;
}

int answer(process::Host& host, unsigned long request, ifreq& asked) {
    char name[IFNAMSIZ];
    std::memcpy(name, asked.ifr_name, sizeof name);
    name[sizeof name - 1] = '\0';
    Interface* const interface = find_interface(*host.network, name);
    if (interface == nullptr) {
        return ENODEV;
    }
    const std::uint32_t command = command_of(request, asked);
    if (const int error = refusal(*interface, command); error != 0) {
        return error;
    }
    switch (request) {
        case SIOCETHTOOL:
            return asked.ifr_data == nullptr
                       ? EFAULT
                       : run_ethtool(*host.network, *interface, command, asked.ifr_data);
        case SIOCSIFMTU:
            return set_mtu(host, *interface, name, asked.ifr_mtu);
        default:
            return 0;  // the driver's private requests change nothing that the host shows
    }
}

Interface* find_interface(state::Network& network, const char* name) {
    if (*name == '\0') {
        return nullptr;
    }
    for (std::uint32_t i = 0; i < network.count; ++i) {
        if (std::strncmp(network.names[i], name, state::kNameSize) == 0) {
            return &network.interfaces[i];
        }
    }
    return nullptr;
}

}  // namespace kxsim::models
