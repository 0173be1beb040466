// The link settings of a port: auto-negotiation or a forced speed, advertised modes, message level;
// the restart of auto-negotiation.
#include <kxlinhw/settings.h>
#include <kxlinhw/status.h>
#include <linux/ethtool.h>

#include <algorithm>
#include <array>

#include "settings/detail_text.hpp"
#include "settings/port_setter.hpp"

namespace kx::settings {
namespace {

constexpr std::array<uint16_t, 4> kForcedSpeeds{10000, 1000, 100, 10};

class LinkSetter {
public:
    LinkSetter(const PortSetter& port, const char* interface_name, const PortSettings& settings)
        : port_(port), interface_(interface_name), settings_(settings) {}

    // Each step stores its status when it fails.
    [[nodiscard]] int status() const { return status_; }

    void set_link(uint32_t mask) {
        ethtool_cmd link{};
        link.cmd = ETHTOOL_GSET;
        if (port_.request(&link) != 0) {
            status_ = kRefused;
            return;
        }
        const bool negotiation = (mask & KX_PORT_LINK) != 0 && choose_negotiation(link);
        const bool advertising = (mask & KX_PORT_ADVERTISE) != 0 && choose_advertising(link);
        if ((negotiation || advertising) && write(link)) {
            save(negotiation, advertising);
        }
    }

    void set_message_level() {
        const auto level = static_cast<int32_t>(settings_.message_level);
        if (level < 0) {
            status_ = KX_INVALID_SET_VALUE;
            port_.report_link("Message level", interface_, "Invalid Argument");
            return;
        }
        ethtool_value command{};
        command.cmd = ETHTOOL_SMSGLVL;
        command.data = settings_.message_level;
        if (const int result = port_.request(&command); result != 0) {
            refused(result, "Message level");
            return;
        }
        port_.save("messageLevel", level);
    }

private:
    bool choose_negotiation(ethtool_cmd& link) {
        if (isBool(settings_.autoneg) == 0) {
            return invalid("link_autoneg");
        }
        if (settings_.autoneg == AUTONEG_ENABLE) {
            link.autoneg = AUTONEG_ENABLE;
            link.advertising = link.supported;
            return true;
        }
        const uint16_t speed = settings_.speed;
        if (std::ranges::find(kForcedSpeeds, speed) == kForcedSpeeds.end()) {
            return invalid("link speed");
        }
        link.autoneg = AUTONEG_DISABLE;
        ethtool_cmd_speed_set(&link, speed);
        link.duplex = settings_.duplex != 0 ? DUPLEX_FULL : DUPLEX_HALF;
        return true;
    }

    // Modes are advertised only with auto-negotiation, whether it was on before or is switched on
    // now.
    bool choose_advertising(ethtool_cmd& link) {
        if (link.autoneg != AUTONEG_ENABLE) {
            status_ = KX_INVALID_SET_VALUE;
            // Agents expect the interface before the reason in this message.
            port_.report_link("advertise", interface_, "link_autoneg is off");
            return false;
        }
        link.advertising = settings_.advertise;
        return true;
    }

    bool write(ethtool_cmd& link) {
        link.cmd = ETHTOOL_SSET;
        if (const int result = port_.request(&link); result != 0) {
            refused(result, "ethtool settings");
            return false;
        }
        return true;
    }

    void save(bool negotiation, bool advertising) const {
        if (negotiation) {
            port_.save("link_autoneg", settings_.autoneg);
            port_.save("speed", settings_.speed);
            port_.save("duplex", settings_.duplex);
        }
        if (advertising) {
            port_.save("advertise", static_cast<int>(settings_.advertise));
        }
    }

    bool invalid(const char* setting) {
        status_ = KX_INVALID_SET_VALUE;
        port_.report(setting, "Invalid argument");
        return false;
    }

    void refused(int result, const char* setting) {
        const char* const reason = system_reason();
        status_ = result;
        port_.report_link(setting, interface_, reason);
    }

    const PortSetter& port_;
    const char* interface_;
    const PortSettings& settings_;
    int status_ = KX_SUCCESS;
};

}  // namespace
}  // namespace kx::settings

extern "C" {

int setLinkSettings(const char* interface_name, PortSettings* settings, uint32_t mask) {
    using namespace kx::settings;
    if (interface_name == nullptr || settings == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    const PortSetter port(interface_name, settings->port_instance);
    if (!port) {
        return kRefused;
    }
    LinkSetter link(port, interface_name, *settings);
    link.set_link(mask);
    if ((mask & KX_PORT_MESSAGE_LEVEL) != 0) {
        link.set_message_level();  // also when the driver returned no link settings
    }
    return link.status();
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
