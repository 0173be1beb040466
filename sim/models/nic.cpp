// Trigger: an ioctl whose data is an interface request (SIOCETHTOOL, SIOCSIFMTU, SIOCGIFMTU and
// more). Effect: the interface's record in the session's network file is read or changed, so the
// setting is there for every process of the session. What can be made to fail: each request of
// each interface, by a refusal that carries an errno; the ioctl as such, by a fault rule. A driver
// can also be made to accept a request and ignore it.
#include "models/nic.hpp"

#include <linux/sockios.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "models/ethtool.hpp"
#include "models/interface_requests.hpp"
#include "process/tree_file.hpp"

namespace kxsim::models {
namespace {

using state::Interface;

// Of <linux/wireless.h>, which cannot be included beside <net/if.h>.
constexpr unsigned long kFirstWireless = 0x8B00;
constexpr unsigned long kLastWireless = 0x8BFF;

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

// The kernel asks the driver the same for both requests for the link's settings, and so for both
// that change them.
std::uint32_t driver_command(std::uint32_t command) {
    return command == ETHTOOL_GLINKSETTINGS   ? std::uint32_t{ETHTOOL_GSET}
           : command == ETHTOOL_SLINKSETTINGS ? std::uint32_t{ETHTOOL_SSET}
                                              : command;
}

// The error of a refused request, kIgnored for one that the driver ignores, otherwise 0.
int refusal(const Interface& interface, std::uint32_t command) {
    for (std::uint32_t i = 0; i < interface.refusal_count; ++i) {
        const state::Refusal& refusal = interface.refusals[i];
        if (refusal.error != 0 &&
            (refusal.command == command || refusal.command == driver_command(command))) {
            return refusal.error;
        }
    }
    return 0;
}

}  // namespace

bool is_interface_request(unsigned long request) {
    constexpr unsigned long kBlock = 16;
    const bool of_protocol = SIOCPROTOPRIVATE <= request && request < SIOCPROTOPRIVATE + kBlock;
    const bool of_device = SIOCGIFNAME <= request && request < SIOCDEVPRIVATE + kBlock;
    const bool wireless = kFirstWireless <= request && request <= kLastWireless;
    return (of_device && !of_protocol) || wireless || request == SIOCADDRT || request == SIOCDELRT;
}

bool names_interface(unsigned long request) {
    return request == SIOCETHTOOL || request == SIOCSIFMTU || request == SIOCDEVPRIVATE ||
           reads_interface(static_cast<std::uint32_t>(request));
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
        return error == state::kIgnored ? 0 : error;
    }
    switch (request) {
        case SIOCETHTOOL:
            return asked.ifr_data == nullptr
                       ? EFAULT
                       : run_ethtool(*host.network, *interface, command, asked.ifr_data);
        case SIOCSIFMTU:
            return set_mtu(host, *interface, name, asked.ifr_mtu);
        case SIOCDEVPRIVATE:
            return 0;  // the driver's private requests change nothing that the host shows
        default:
            return read_interface(*interface, command, asked);
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
