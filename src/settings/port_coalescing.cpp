// The interrupt coalescing of a port.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <cstdio>

#include "settings/port_setter.hpp"

extern "C" int setCoalesce(const char* interface_name, PortSettings* settings, uint32_t mask) {
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
