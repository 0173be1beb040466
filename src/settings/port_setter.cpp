// The groups of setters with one request each, and the functions that all groups share.
#include "settings/port_setter.hpp"

#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "settings/detail_text.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr long kSmallestMtu = 22;
constexpr long kLargestMtu = 10222;
constexpr uint32_t kMtuInstance = 1;  // the value that the recording gets for every port

long mtu_of(const PortSettings& settings) {
    return std::strtol(TerminatedText(settings.mtu).c_str(), nullptr, 0);
}

}  // namespace

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

extern "C" {

int setMTU(const char* interface_name, PortSettings* settings, uint32_t) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, kMtuInstance);
    if (!port) {
        return kRefused;
    }
    const long mtu = mtu_of(*settings);
    if (mtu < kSmallestMtu || mtu > kLargestMtu) {
        return KX_INVALID_SET_VALUE;
    }
    if (port.request_mtu(static_cast<int>(mtu)) == -1) {
        return kRefused;
    }
    port.save("mtu", static_cast<int>(mtu));
    return KX_SUCCESS;
}

int setCoalesce(const char* interface_name, PortSettings* settings, uint32_t mask) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, settings->port_instance);
    ethtool_coalesce coalescing{};
    coalescing.cmd = ETHTOOL_GCOALESCE;
    if (!port || port.request(&coalescing) != 0) {
        return kRefused;
    }
    const bool wanted = (mask & KX_PORT_RX_USECS) != 0;
    if (wanted) {
        coalescing.rx_coalesce_usecs = settings->rx_usecs;
    }
    coalescing.cmd = ETHTOOL_SCOALESCE;
    if (const int result = port.request(&coalescing); result != 0) {
        port.report("rx_usecs", system_reason());
        return result;
    }
    if (wanted) {
        const auto value = static_cast<int>(settings->rx_usecs);
        port.save("rxusecs", value);
        std::printf(
            "rxusecs interface %s , ,port->PortInstance %d ,port->rx_usecs %d\n", interface_name,
            static_cast<int>(settings->port_instance), value);
    }
    return KX_SUCCESS;
}

int resetAutoneg(const char* interface_name, PortSettings*, uint32_t) {
    using namespace kx::settings;
    if (interface_name == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, 0);
    if (!port) {
        return kRefused;
    }
    ethtool_value restart{};
    restart.cmd = ETHTOOL_NWAY_RST;
    const int result = port.request(&restart);
    if (result != 0) {
        append_detail(PortMessage(
            "Reset auto-negotiation failed for %s: %s; ", interface_name, system_reason()));
    }
    return result;
}

}  // extern "C"
