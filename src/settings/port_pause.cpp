// The pause settings of a port.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "settings/detail_text.hpp"
#include "settings/port_setter.hpp"
#include "support/text.hpp"

namespace kx::settings {
namespace {

constexpr char kInvalid[] = "Invalid argument";

class PauseSetter {
public:
    PauseSetter(const PortSetter& port, const char* interface_name, const PortSettings& settings)
        : port_(port), interface_(interface_name), settings_(settings) {}

    int apply(uint32_t mask) {
        ethtool_pauseparam pause{};
        pause.cmd = ETHTOOL_GPAUSEPARAM;
        if (port_.request(&pause) != 0) {
            return KX_SUCCESS;  // an adapter without pause parameters is not a failure
        }
        const bool negotiation = (mask & KX_PORT_PAUSE_AUTONEG) != 0 && choose_negotiation(pause);
        const bool transmit = (mask & KX_PORT_TX_PAUSE) != 0 && choose_transmit(pause);
        const bool receive = (mask & KX_PORT_RX_PAUSE) != 0 && choose_receive(pause);
        // Sent also when no value was accepted.
        pause.cmd = ETHTOOL_SPAUSEPARAM;
        if (port_.request(&pause) != 0) {
            port_.report("Pause parameter", system_reason());
            return kRefused;
        }
        if (negotiation) {
            port_.save("pauseautoneg", settings_.pause_autoneg);
        }
        if (transmit) {
            port_.save("txpfsupport", std::atoi(TerminatedText(settings_.tx_pause).c_str()));
        }
        if (receive) {
            port_.save("rxpfsupport", std::atoi(TerminatedText(settings_.rx_pause).c_str()));
        }
        return status_;
    }

private:
    bool choose_negotiation(ethtool_pauseparam& pause) {
        if (isBool(settings_.pause_autoneg) == 0) {
            status_ = KX_UNKNOWN_ERROR;
            append_detail(PortMessage(
                "Set %s failed for %s :  %s; ", "pause_autonegotiation", interface_, kInvalid));
            return false;
        }
        pause.autoneg = settings_.pause_autoneg;
        return true;
    }

    bool choose_transmit(ethtool_pauseparam& pause) {
        const uint8_t wanted = strToBool(TerminatedText(settings_.tx_pause).c_str());
        if (isBool(wanted) == 0) {
            status_ = KX_INVALID_SET_VALUE;
            port_.report("tx_pause", kInvalid);
            return false;
        }
        pause.tx_pause = wanted;
        return true;
    }

    bool choose_receive(ethtool_pauseparam& pause) {
        const uint8_t wanted = strToBool(TerminatedText(settings_.rx_pause).c_str());
        if (isBool(wanted) == 0) {
            status_ = KX_INVALID_SET_VALUE;
            std::printf("err %s\n", port_.report("rx_pause", kInvalid).c_str());
            return false;
        }
        pause.rx_pause = wanted;
        return true;
    }

    const PortSetter& port_;
    const char* interface_;
    const PortSettings& settings_;
    int status_ = KX_SUCCESS;
};

}  // namespace
}  // namespace kx::settings

extern "C" {

int setPauseParams(const char* interface_name, PortSettings* settings, uint32_t mask) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, settings->port_instance);
    return port ? PauseSetter(port, interface_name, *settings).apply(mask) : kRefused;
}

}  // extern "C"
